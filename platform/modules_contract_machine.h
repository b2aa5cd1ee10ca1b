// What the contract test of the libraries arranges on the machine, behind the seam's back. Every
// back-end implements it with its own machine's means.
#pragma once

#include <string>

#include "platform/modules.h"

namespace platform::contract {

// Called before and after every test.
void PrepareLibraries();
void ClearLibraries();

// The full path of a library that exports "ContractAnswer" and is not loaded when a test starts.
std::u16string LibraryPath();
// What the function at `procedure` gives when it is called.
int CallAnswer(Procedure procedure);
inline constexpr int kAnswer = 42;

// The full path of a file that is no library.
std::u16string BrokenLibraryPath();

// The system directory as the machine itself knows it.
std::u16string SystemDirectoryPath();

// Sets a variable of this process's environment.
void SetVariable(const std::u16string& name, const std::u16string& value);

}  // namespace platform::contract
