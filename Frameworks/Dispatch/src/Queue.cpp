#include "Queue.h"

#include "ClientBug.h"
#include "GlobalQueue.h"
#include "SerialQueue.h"

#include <unistd.h>

#include <array>
#include <cstdio>

namespace dispatch::runtime {

namespace {

thread_local const QueueFrame* innermostFrame = nullptr;

constexpr int kLowestRelativePriority = -15;

class QueueAttribute final : public Object {
public:
    explicit QueueAttribute(Level level) : Object(Lifetime::immortal), level_(level) {}
    Level level() const { return level_; }

    static QueueAttribute& withLevel(Level level)
    {
        // Never destroyed: attributes are constants, also while the process ends.
        static const auto all = [] {
            std::array<QueueAttribute*, kLevelCount> made{};
            for (const Level each : kLevels)
                made[static_cast<std::size_t>(each)] = new QueueAttribute(each);
            return made;
        }();
        return *all[static_cast<std::size_t>(level)];
    }

private:
    const Level level_;
};

[[noreturn]] void failAssertion(const Queue& queue, const char* expectation)
{
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(), "Assertion failed: Block was %s to execute on queue [%s (%p)]",
                  expectation, queue.label(), static_cast<const void*>(&queue));
    clientBug(text.data());
}

}  // namespace

QueueFrame::QueueFrame(const Queue& queue, const QueueFrame* outer)
    : queue_(queue),
      outer_(outer),
      restored_(innermostFrame)
{
    innermostFrame = this;
}

QueueFrame::~QueueFrame()
{
    innermostFrame = restored_;
}

const QueueFrame* QueueFrame::current()
{
    return innermostFrame;
}

bool QueueFrame::contains(const Queue& queue)
{
    for (const QueueFrame* frame = innermostFrame; frame; frame = frame->outer_)
        if (&frame->queue_ == &queue) return true;
    return false;
}

}  // namespace dispatch::runtime

using namespace dispatch::runtime;

dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t, qos_class_t qosClass,
                                                              int relativePriority)
{
    const auto level = levelOf(qosClass);
    if (!level || relativePriority > 0 || relativePriority < kLowestRelativePriority) return nullptr;
    return toHandle<dispatch_queue_attr_t>(QueueAttribute::withLevel(*level));
}

dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attribute)
{
    const Level level = attribute ? fromHandle<QueueAttribute>(attribute).level() : Level::standard;
    return toHandle<dispatch_queue_t>(*new SerialQueue(label, GlobalQueue::withLevel(level)));
}

dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags)
{
    const auto level = levelOf(static_cast<unsigned long>(identifier));
    if (!level || flags != 0) return nullptr;
    return toHandle<dispatch_queue_t>(GlobalQueue::withLevel(*level));
}

const char* dispatch_queue_get_label(dispatch_queue_t queue)
{
    if (queue) return fromHandle<Queue>(queue).label();
    const QueueFrame* const frame = QueueFrame::current();
    return frame ? frame->queue().label() : "";
}

void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work)
{
    fromHandle<Queue>(queue).async(context, work);
}

void dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work)
{
    fromHandle<Queue>(queue).sync(context, work);
}

void dispatch_assert_queue(dispatch_queue_t queue)
{
    const auto& expected = fromHandle<Queue>(queue);
    if (!QueueFrame::contains(expected)) failAssertion(expected, "expected");
}

void dispatch_assert_queue_not(dispatch_queue_t queue)
{
    const auto& unexpected = fromHandle<Queue>(queue);
    if (QueueFrame::contains(unexpected)) failAssertion(unexpected, "not expected");
}

void dispatch_main()
{
    if (::gettid() != ::getpid()) clientBug("dispatch_main() must be called on the main thread");
    for (;;)
        ::pause();
}
