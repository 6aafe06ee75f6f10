#include "Producer/SendThread.h"

#include "Platform/Support/Fatal.h"

#include <pthread.h>
#include <signal.h>

#include <utility>

namespace pavo::producer {

SendThread::SendThread(std::size_t capacity, std::function<void(const Item&)> send)
    : send_(std::move(send)),
      items_(capacity)
{
    // Signals are for the program's own threads.
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

SendThread::~SendThread()
{
    stop();
}

void SendThread::push(const Item& item)
{
    {
        const std::lock_guard lock(mutex_);
        require(count_ < items_.size(), "more frames wait than there are surfaces");
        items_[(first_ + count_) % items_.size()] = item;
        ++count_;
    }
    hasChanged_.notify_one();
}

void SendThread::stop()
{
    {
        const std::lock_guard lock(mutex_);
        isStopped_ = true;
    }
    hasChanged_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void SendThread::run()
{
    ::pthread_setname_np(::pthread_self(), "pavo-send");
    std::unique_lock lock(mutex_);
    for (;;) {
        hasChanged_.wait(lock, [this] { return isStopped_ || count_ > 0; });
        if (count_ == 0) return;
        const Item item = items_[first_];
        first_ = (first_ + 1) % items_.size();
        --count_;
        lock.unlock();
        send_(item);
        lock.lock();
    }
}

}  // namespace pavo::producer
