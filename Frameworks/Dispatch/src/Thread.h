#pragma once

namespace dispatch::runtime {

// Starts a detached thread, which leaves the signals of the process to the threads of its owner.
// False when the system has no thread to give.
bool startThread(void* (*function)(void*), void* context);
// The name that tools show; at most 15 characters.
void nameThisThread(const char* name);

}  // namespace dispatch::runtime
