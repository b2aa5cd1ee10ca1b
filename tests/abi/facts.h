// The same facts about Extended MAPI out of two sets of declarations.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace zentpost::abi {

using Facts = std::map<std::string, std::string>;

Facts PublishedFacts();  // from the headers that come with the compiler
Facts OurFacts();        // from mapiload/extended_mapi.h

// Objects that implement the published interfaces and remember which of their methods was called
// last; every method gives the number of calls so far. `interface_name` is "IMessage", say. The
// object lives as long as the process.
void* Recorder(const std::string& interface_name);
std::string LastMethod();
int CallCount();

// Calls each method in use through our declarations, on a recorder of its interface. Gives a line
// for each call: "IMessage::SubmitMessage called SubmitMessage, result N of N".
std::vector<std::string> CallThroughOurs();

}  // namespace zentpost::abi
