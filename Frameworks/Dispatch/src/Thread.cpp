#include "Thread.h"

#include <pthread.h>

#include <array>
#include <csignal>

namespace dispatch::runtime {

namespace {

// Signals for the whole process belong to the threads that the client made. What a thread brings on itself is
// still delivered to it.
sigset_t processSignals()
{
    sigset_t set;
    sigfillset(&set);
    constexpr std::array kOwn = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF};
    for (const int own : kOwn)
        sigdelset(&set, own);
    return set;
}

}  // namespace

bool startThread(void* (*function)(void*), void* context)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);

    // A new thread inherits the mask, so no signal can reach it before it could set its own.
    const sigset_t blocked = processSignals();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    pthread_t thread{};
    const bool isStarted = pthread_create(&thread, &attributes, function, context) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return isStarted;
}

void nameThisThread(const char* name)
{
    pthread_setname_np(pthread_self(), name);
}

}  // namespace dispatch::runtime
