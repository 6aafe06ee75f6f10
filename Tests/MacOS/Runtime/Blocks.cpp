// Blocks and the variables that they share with their function.

#include "Tests/MacOS/Runtime/Blocks.h"

#include "Tests/MacOS/Runtime/Runtime.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

using namespace pavo::test::objc;

extern "C" {
void* _NSConcreteStackBlock[32];
void* _NSConcreteMallocBlock[32];
void* _NSConcreteGlobalBlock[32];
Object* objc_retain(Object* object);
void objc_release(Object* object);
}

namespace {

constexpr int kOneReference = 2;
constexpr int kReferenceMask = 0xFFFE;
constexpr int kNeedsFree = 1 << 24;
constexpr int kHasHelpers = 1 << 25;

// What a helper copies or lets go.
constexpr int kKindMask = 0x1F;
constexpr int kKindObject = 3;
constexpr int kKindBlock = 7;
constexpr int kKindShared = 8;

struct Descriptor {
    unsigned long reserved;
    unsigned long size;
    void (*copy)(void* to, void* from);
    void (*dispose)(void* block);
};

struct Block {
    void* isa;
    std::atomic<int> flags;
    int reserved;
    void* invoke;
    Descriptor* descriptor;
};

// A variable with __block.
struct Shared {
    void* isa;
    Shared* forwarding;
    std::atomic<int> flags;
    int size;
    void (*copy)(Shared* to, Shared* from);
    void (*dispose)(Shared* shared);
};

template <typename T>
T* copyToHeap(const T* source, std::size_t size)
{
    void* const memory = std::malloc(size);
    std::memcpy(memory, static_cast<const void*>(source), size);
    return static_cast<T*>(memory);
}

// True when the last reference is gone.
bool dropReference(std::atomic<int>& flags)
{
    return ((flags.fetch_sub(kOneReference) - kOneReference) & kReferenceMask) == 0;
}

Shared* shareOnHeap(Shared* shared)
{
    auto* const current = shared->forwarding;
    if (current->flags & kNeedsFree) {
        current->flags += kOneReference;
        return current;
    }
    auto* const copy = copyToHeap(shared, static_cast<std::size_t>(shared->size));
    // One reference of the block, one of the function whose variable it is.
    copy->flags = (shared->flags & ~kReferenceMask) | kNeedsFree | 2 * kOneReference;
    copy->forwarding = copy;
    shared->forwarding = copy;
    if (shared->flags & kHasHelpers) shared->copy(copy, shared);
    return copy;
}

void letGo(Shared* shared)
{
    auto* const current = shared->forwarding;
    if (!(current->flags & kNeedsFree) || !dropReference(current->flags)) return;
    if (current->flags & kHasHelpers) current->dispose(current);
    std::free(current);
}

}  // namespace

namespace pavo::test::objc {

bool isBlock(const void* object)
{
    const void* const isa = static_cast<const Block*>(object)->isa;
    return isa == _NSConcreteStackBlock || isa == _NSConcreteMallocBlock || isa == _NSConcreteGlobalBlock;
}

}  // namespace pavo::test::objc

extern "C" {

void* _Block_copy(const void* source)
{
    auto* const block = static_cast<Block*>(const_cast<void*>(source));
    if (!block || block->isa == _NSConcreteGlobalBlock) return block;
    if (block->isa == _NSConcreteMallocBlock) {
        block->flags += kOneReference;
        return block;
    }
    auto* const copy = copyToHeap(block, block->descriptor->size);
    copy->isa = _NSConcreteMallocBlock;
    copy->flags = (block->flags & ~kReferenceMask) | kOneReference;
    if (block->flags & kHasHelpers) block->descriptor->copy(copy, block);
    countLive(copy, "a block");
    return copy;
}

void _Block_release(const void* source)
{
    auto* const block = static_cast<Block*>(const_cast<void*>(source));
    if (!block || block->isa != _NSConcreteMallocBlock || !dropReference(block->flags)) return;
    if (block->flags & kHasHelpers) block->descriptor->dispose(block);
    forgetLive(block);
    std::free(block);
}

void* objc_retainBlock(const void* block)
{
    return _Block_copy(block);
}

void _Block_object_assign(void* to, const void* object, int flags)
{
    auto* const source = const_cast<void*>(object);
    switch (flags & kKindMask) {
    case kKindObject:
        *static_cast<void**>(to) = objc_retain(static_cast<Object*>(source));
        break;
    case kKindBlock:
        *static_cast<void**>(to) = _Block_copy(object);
        break;
    case kKindShared:
        *static_cast<void**>(to) = shareOnHeap(static_cast<Shared*>(source));
        break;
    default:
        die("A block keeps something that it cannot keep");
    }
}

void _Block_object_dispose(const void* object, int flags)
{
    auto* const source = const_cast<void*>(object);
    switch (flags & kKindMask) {
    case kKindObject:
        objc_release(static_cast<Object*>(source));
        break;
    case kKindBlock:
        _Block_release(object);
        break;
    case kKindShared:
        letGo(static_cast<Shared*>(source));
        break;
    default:
        die("A block keeps something that it cannot keep");
    }
}

}  // extern "C"
