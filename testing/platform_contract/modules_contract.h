// What the contract test of platform/modules.h arranges on the machine, and looks up there, behind
// the seam's back. Every back-end implements it with its own machine's means
// (modules_contract_windows.cpp, modules_contract_posix.cpp, modules_contract_fake.cpp), never with
// the seam's functions, which are what is being tested.
#pragma once

#include <string>

namespace platform::modules_contract {

// Called before and after every test. In between, what the functions below promise is there, and
// none of the libraries is loaded.
void PrepareMachine();
void ClearMachine();

// What the test library's function "ContractNumber" gives. It has no other exports that a test may
// rely on.
inline constexpr int kContractNumber = 1707;
using ContractNumber = int (*)();

// Full paths in the seam's spelling. The library's file name is one that nothing else in the
// process and in the system's folders has.
std::u16string Library();
std::u16string LibraryFileName();
std::u16string BrokenLibrary();   // exists, but is a text
std::u16string MissingLibrary();  // in a folder that exists

// The bare name of a library that stands in the system's own folders and is not loaded, and whether
// the process has loaded it.
std::u16string LibraryOfTheSystem();
bool IsLibraryOfTheSystemLoaded();

// Whether the process has loaded the test library.
bool IsLibraryLoaded();

// The system directory, as the machine knows it.
std::u16string TheSystemDirectory();

// Sets a variable of the environment until ClearMachine. The variable of the second name is not
// there.
void SetVariable(const std::u16string& name, const std::u16string& value);
inline constexpr char16_t kUnknownVariable[] = u"ZENTPOST_NO_SUCH_VARIABLE";

}  // namespace platform::modules_contract
