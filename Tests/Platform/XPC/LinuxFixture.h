#pragma once

#include "Tests/Platform/XPC/RawPeer.h"
#include "Tests/Platform/XPC/XPCFixture.h"

#include <cstddef>
#include <cstdint>
#include <string>

// What only the tests of the face on Linux need. There every test must leave as many descriptors open as it
// found, and names are looked up in a folder of the program's own.
namespace pavo::test {

// A peer that has connected to the listener, and says nothing by itself.
RawPeer connectRaw(xpc::Listener& listener);

// The file behind a surface.
std::uint64_t inodeOf(IOSurfaceRef surface);
// How many surfaces this process has mapped.
std::size_t mappedSurfaceCount();

// Messages that the face and its frameworks have logged since the test began.
bool hasLogged(const std::string& part);
std::size_t loggedErrorCount();
// As the log names a peer in this process.
std::string ownProcess();

// The program that plays another process.
std::string peerProgram();

}  // namespace pavo::test
