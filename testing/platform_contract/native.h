// What the two systems do in their own ways for native.cpp, and what it does for them.
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <string>

namespace platform::contract {

// By the systems. Around the time in which peers use the network:
void StartNetwork();
void EndNetwork();
// The path of a file as this system writes it.
std::filesystem::path SystemPath(std::u16string path);
std::filesystem::path ThisProgram();
// Whether this user is held to what a file's attributes say.
bool ReadOnlyBinds(const std::u16string& path);
// As mktime, for any year.
std::int64_t Instant(std::tm local);

// By native.cpp. The test's own folder, which holds more than Folder() does:
const std::filesystem::path& TestFolder();
// Its share in PrepareMachine and ClearMachine.
void PrepareFilesAndPeers();
void ClearFilesAndPeers();

}  // namespace platform::contract
