// The parts of a real machine that the contract test's arrangements are made of: what differs from
// one system to the other, in as few words as possible. contract_native.cpp makes the rest of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace platform::contract {

// Sockets of the test's own, apart from those of the seam. Everything is on 127.0.0.1 and throws
// when it fails, but for Receive.
enum class Connection : std::uintptr_t {};
void StartNetwork();
void EndNetwork();
Connection ListenAnywhere(std::uint16_t& port);  // on a free port
Connection Accept(Connection listener);
Connection ConnectTo(std::uint16_t port);
std::size_t Receive(Connection connection, char* buffer, std::size_t capacity);  // 0: the end
void CloseConnection(Connection connection);
void EndSending(Connection connection);       // the other side sees the end of what it receives
void ResetConnection(Connection connection);  // closes it without delivering

// Processes. A copy runs this program with one more argument and inherits the environment.
void SetVariable(const std::string& name, const std::string& value);
std::intptr_t StartCopy(const std::string& argument);
int WaitForCopy(std::intptr_t process);  // gives its exit code

// The path of a file as this system writes it.
std::filesystem::path SystemPath(std::u16string path);

// Whether the seam's kind of opening is expected to let this user write to a file.
bool IsWritable(const std::u16string& path);

// Makes an empty folder that nobody else has, in the system's folder for temporary files, and takes
// one away with all that is in it, read-only or not.
std::filesystem::path MakeFolder();
void RemoveFolder(const std::filesystem::path& unwanted);

// The share that contract_native.cpp has in PrepareMachine and ClearMachine.
void PrepareFilesAndPeers();
void ClearFilesAndPeers();

}  // namespace platform::contract
