#pragma once

#include "Tests/MacOS/Runtime/Runtime.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace pavo::test::objc {

// What the registers that carry arguments held when a message or a block's call came in.
struct Registers {
    std::array<void*, 6> general;
    std::array<double, 8> floating;
};

// A message or a block's call, taken apart by the types that the compiler wrote for it, and put together
// again later. Keeps the objects and blocks among its arguments.
//
// To have its messages taken, a class implements
//     - (void)takeMessage:(const objc::Registers*)registers stack:(const void*)stack;
// and gets with it every message that it has no method for.
class Invocation final {
public:
    // `types` are extended ones: "v20@0:8i16". Those of a block's call have no sizes: "v@?Q".
    Invocation(const char* types, const Registers& registers, const void* stack);
    ~Invocation();
    Invocation(Invocation&& other) noexcept;
    Invocation(const Invocation&) = delete;

    const char* selector() const { return static_cast<const char*>(registers_.general[1]); }
    // The message's last block: its reply; null where it has none. `types` says how the block is called.
    void* block(std::string* types) const;
    void replaceBlock(void* other);

    void sendTo(void* object) const;
    void callBlock(void* block) const;

private:
    void call(void* function, void* receiver) const;

    Registers registers_;
    std::vector<std::uint64_t> stack_;
    std::vector<std::size_t> kept_;  // which of the general registers hold an object of ours
    std::size_t blockRegister_ = 0;  // none: 0, which is the receiver's
    std::string blockTypes_;
};

// Makes calls of the block go to the object that it captured first, as takeAnswer:stack:.
void takeCallsOf(void* block);

}  // namespace pavo::test::objc
