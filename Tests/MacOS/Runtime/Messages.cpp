// Sending messages: finds the method, and jumps to it with the arguments as they are.

#include "Tests/MacOS/Runtime/Runtime.h"

using namespace pavo::test::objc;

namespace {

struct Super {
    Object* receiver;
    ClassRecord* type;  // the one whose superclass is meant
};

// Two values in two registers.
struct Target {
    Implementation implementation;
    void* receiver;
};

Target unanswered(const ClassRecord* type, const char* selector)
{
    die(type ? type->data->name : "what is no object", " does not understand ", selector);
}

}  // namespace

extern "C" {

void pavo_capture_message(void);

[[gnu::used]] Target pavo_find_method(void* object, const char* selector)
{
    auto* const type = classOf(object);
    if (type)
        if (const auto found = findImplementation(type, selector)) return {found, object};
    static const char* const forwarding = uniqueSelector("forwardingTargetForSelector:");
    const auto ask = type ? findImplementation(type, forwarding) : nullptr;
    auto* const target =
        ask ? reinterpret_cast<void* (*)(void*, const char*, const char*)>(ask)(object, forwarding, selector)
            : nullptr;
    auto* const targetType = target ? classOf(target) : nullptr;
    static const char* const taking = uniqueSelector("takeMessage:stack:");
    if (!targetType && type && findImplementation(type, taking)) return {pavo_capture_message, object};
    if (!targetType) return unanswered(type, selector);
    const auto found = findImplementation(targetType, selector);
    if (!found) return unanswered(targetType, selector);
    return {found, target};
}

[[gnu::used]] Target pavo_find_super_method(Super* super, const char* selector)
{
    const auto found = findImplementation(super->type->superclass, selector);
    if (!found) return unanswered(super->type->superclass, selector);
    return {found, super->receiver};
}

}  // extern "C"

// Keeps every register that can hold an argument across the search. `objectRegister` holds the receiver, and
// `selectorRegister` the selector; `receiverSlot` is where the kept receiver lies.
#define PAVO_SEND(name, nilCheck, moves, find, receiverSlot, nilAnswer)                                      \
    asm(".text\n.globl " name "\n.type " name ", @function\n" name ":\n" nilCheck                            \
        "push %rbp\nmov %rsp, %rbp\nsub $0xd0, %rsp\n"                                                       \
        "mov %rdi, -8(%rbp)\nmov %rsi, -16(%rbp)\nmov %rdx, -24(%rbp)\nmov %rcx, -32(%rbp)\n"                \
        "mov %r8, -40(%rbp)\nmov %r9, -48(%rbp)\nmov %rax, -56(%rbp)\n"                                      \
        "movaps %xmm0, -0x50(%rbp)\nmovaps %xmm1, -0x60(%rbp)\nmovaps %xmm2, -0x70(%rbp)\n"                  \
        "movaps %xmm3, -0x80(%rbp)\nmovaps %xmm4, -0x90(%rbp)\nmovaps %xmm5, -0xa0(%rbp)\n"                  \
        "movaps %xmm6, -0xb0(%rbp)\nmovaps %xmm7, -0xc0(%rbp)\n" moves "call " find                          \
        "\nmov %rax, %r11\nmov %rdx, " receiverSlot "(%rbp)\n"                                               \
        "movaps -0x50(%rbp), %xmm0\nmovaps -0x60(%rbp), %xmm1\nmovaps -0x70(%rbp), %xmm2\n"                  \
        "movaps -0x80(%rbp), %xmm3\nmovaps -0x90(%rbp), %xmm4\nmovaps -0xa0(%rbp), %xmm5\n"                  \
        "movaps -0xb0(%rbp), %xmm6\nmovaps -0xc0(%rbp), %xmm7\n"                                             \
        "mov -8(%rbp), %rdi\nmov -16(%rbp), %rsi\nmov -24(%rbp), %rdx\nmov -32(%rbp), %rcx\n"                \
        "mov -40(%rbp), %r8\nmov -48(%rbp), %r9\nmov -56(%rbp), %rax\nleave\njmp *%r11\n" nilAnswer          \
        ".size " name ", .-" name "\n")

// A message to nil answers zero.
PAVO_SEND("objc_msgSend", "test %rdi, %rdi\njz 1f\n", "", "pavo_find_method", "-8",
          "1: xor %eax, %eax\nxor %edx, %edx\npxor %xmm0, %xmm0\npxor %xmm1, %xmm1\nret\n");
// The caller's memory for the result comes first. The compiler clears it itself where the receiver is nil.
PAVO_SEND("objc_msgSend_stret", "test %rsi, %rsi\njz 1f\n", "mov %rsi, %rdi\nmov %rdx, %rsi\n",
          "pavo_find_method", "-16", "1: mov %rdi, %rax\nret\n");
PAVO_SEND("objc_msgSendSuper2", "", "", "pavo_find_super_method", "-8", "");
asm(".section .note.GNU-stack,\"\",@progbits\n.text\n");
