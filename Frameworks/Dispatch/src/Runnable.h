#pragma once

#include <dispatch/base.h>

namespace dispatch::runtime {

// Something that waits on a queue for its turn. It is a link of the queue's list itself, so that queueing
// allocates nothing.
class Runnable {
public:
    Runnable(const Runnable&) = delete;
    Runnable& operator=(const Runnable&) = delete;

    // True: put it at the end of the queue again. False: it is done, and may be gone.
    virtual bool run() = 0;

protected:
    Runnable() = default;
    virtual ~Runnable() = default;

private:
    friend class RunnableList;
    Runnable* next_ = nullptr;
};

// First in, first out. Not thread-safe: its owner guards it.
class RunnableList {
public:
    bool isEmpty() const { return first_ == nullptr; }
    void push(Runnable& item)
    {
        item.next_ = nullptr;
        (last_ ? last_->next_ : first_) = &item;
        last_ = &item;
    }
    // Null when it is empty.
    Runnable* pop()
    {
        Runnable* const item = first_;
        if (!item) return nullptr;
        first_ = item->next_;
        if (!first_) last_ = nullptr;
        return item;
    }

private:
    Runnable* first_ = nullptr;
    Runnable* last_ = nullptr;
};

// A function call that waits.
class Call final : public Runnable {
public:
    Call(void* context, dispatch_function_t function) : context_(context), function_(function) {}
    bool run() override
    {
        const dispatch_function_t function = function_;
        void* const context = context_;
        delete this;
        function(context);
        return false;
    }

private:
    ~Call() override = default;

    void* const context_;
    const dispatch_function_t function_;
};

}  // namespace dispatch::runtime
