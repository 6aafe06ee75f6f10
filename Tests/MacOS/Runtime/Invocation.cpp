// Takes messages and calls of blocks apart by their types, and makes them anew. Knows the calling convention
// of x86-64: objects, blocks and integers in general registers, doubles in others, large records in memory.

#include "Tests/MacOS/Runtime/Invocation.h"

#include <cstdlib>
#include <cstring>
#include <utility>

extern "C" {
void objc_msgSend(void);
pavo::test::objc::Object* objc_retain(pavo::test::objc::Object* object);
void objc_release(pavo::test::objc::Object* object);
signed char objc_opt_isKindOfClass(pavo::test::objc::Object* object, pavo::test::objc::ClassRecord* type);
// Loads the registers and the stack, and calls.
void pavo_call(void* function, const void* registers, const void* stack, std::size_t stackWords);
void pavo_capture_block(void);
}

namespace pavo::test::objc {

namespace {

// The fields of a block that every compiler knows, and the first thing that it captured.
struct BlockFields {
    void* isa;
    int flags;
    int reserved;
    void* invoke;
    void* descriptor;
    void* captured;
};

// Reads types one by one.
class TypeReader {
public:
    explicit TypeReader(const char* types) : place_(types)
    {
        if (*place_++ != 'v') die("A message does not return nothing: ", types);
        size_ = readNumber();
    }

    bool hasNext() const { return *place_ != '\0'; }
    // The type, without its place.
    std::string next()
    {
        const char* const begin = place_;
        skipType();
        std::string type(begin, place_);
        const auto offset = readNumber();
        // A value reaches to the next one, the last one to the end.
        const char* const after = place_;
        if (hasNext()) skipType();
        valueSize_ = (hasNext() ? readNumber() : size_) - offset;
        place_ = after;
        return type;
    }
    std::size_t valueSize() const { return valueSize_; }

private:
    void skipType()
    {
        const char first = *place_++;
        if (first == '@' && *place_ == '?') ++place_;
        if (first == '{') skipTo('{', '}');
        if (first == '@' && *place_ == '"') place_ = std::strchr(place_ + 1, '"') + 1;
        if (first == '@' && *place_ == '<') {
            ++place_;
            skipTo('<', '>');
        }
    }
    void skipTo(char opening, char closing)
    {
        for (int depth = 1; depth > 0; ++place_)
            depth += *place_ == opening ? 1 : *place_ == closing ? -1 : 0;
    }
    std::size_t readNumber()
    {
        char* end = nullptr;
        const auto number = std::strtoul(place_, &end, 10);
        place_ = end;
        return number;
    }

    const char* place_;
    std::size_t size_ = 0;
    std::size_t valueSize_ = 0;
};

// An object must be of the class that its type names, as in @"NSData".
void requireClass(Object* object, const std::string& type)
{
    if (!object || !type.starts_with("@\"")) return;
    const auto name = type.substr(2, type.size() - 3);
    if (!objc_opt_isKindOfClass(object, findClass(name.c_str())))
        die("An argument is of another class than ", name.c_str());
}

}  // namespace

Invocation::Invocation(const char* types, const Registers& registers, const void* stack)
    : registers_(registers)
{
    std::size_t generalCount = 0;
    for (TypeReader reader(types); reader.hasNext();) {
        const auto type = reader.next();
        if (type[0] == 'd') continue;
        if (type[0] == '{') {
            const auto* const begin = static_cast<const char*>(stack) + stack_.size() * sizeof(stack_[0]);
            const auto size = reader.valueSize();
            if (size <= 2 * sizeof(stack_[0]) || size % sizeof(stack_[0]) != 0)
                die("Only large structures are carried: ", types);
            stack_.resize(stack_.size() + size / sizeof(stack_[0]));
            std::memcpy(stack_.data() + stack_.size() - size / sizeof(stack_[0]), begin, size);
            continue;
        }
        const auto index = generalCount++;
        if (index >= registers_.general.size() || !std::strchr("@:#cCsSiIlLqQB", type[0]))
            die("Such arguments are not carried: ", types);
        if (type[0] != '@' || index == 0) continue;
        auto*& value = registers_.general[index];
        requireClass(static_cast<Object*>(value), type);
        value = objc_retain(static_cast<Object*>(value));
        kept_.push_back(index);
        if (type.starts_with("@?<")) {
            blockRegister_ = index;
            blockTypes_ = type.substr(3, type.size() - 4);
        }
    }
}

Invocation::~Invocation()
{
    for (const auto index : kept_)
        objc_release(static_cast<Object*>(registers_.general[index]));
}

Invocation::Invocation(Invocation&& other) noexcept
    : registers_(other.registers_),
      stack_(std::move(other.stack_)),
      kept_(std::exchange(other.kept_, {})),
      blockRegister_(other.blockRegister_),
      blockTypes_(std::move(other.blockTypes_))
{}

void* Invocation::block(std::string* types) const
{
    *types = blockTypes_;
    return blockRegister_ == 0 ? nullptr : registers_.general[blockRegister_];
}

void Invocation::replaceBlock(void* other)
{
    auto*& value = registers_.general[blockRegister_];
    objc_retain(static_cast<Object*>(other));
    objc_release(static_cast<Object*>(std::exchange(value, other)));
}

void Invocation::sendTo(void* object) const
{
    call(reinterpret_cast<void*>(&objc_msgSend), object);
}

void Invocation::callBlock(void* block) const
{
    call(static_cast<BlockFields*>(block)->invoke, block);
}

void Invocation::call(void* function, void* receiver) const
{
    auto registers = registers_;
    registers.general[0] = receiver;
    pavo_call(function, &registers, stack_.data(), stack_.size());
}

void takeCallsOf(void* block)
{
    static_cast<BlockFields*>(block)->invoke = reinterpret_cast<void*>(&pavo_capture_block);
}

}  // namespace pavo::test::objc

using namespace pavo::test::objc;

extern "C" {

[[gnu::used]] void pavo_take_message(const Registers* registers, const void* stack)
{
    using Take = void (*)(void*, const char*, const Registers*, const void*);
    static const char* const selector = uniqueSelector("takeMessage:stack:");
    reinterpret_cast<Take>(&objc_msgSend)(registers->general[0], selector, registers, stack);
}

[[gnu::used]] void pavo_take_block_call(const Registers* registers, const void* stack)
{
    using Take = void (*)(void*, const char*, const Registers*, const void*);
    static const char* const selector = uniqueSelector("takeAnswer:stack:");
    reinterpret_cast<Take>(&objc_msgSend)(static_cast<BlockFields*>(registers->general[0])->captured,
                                          selector, registers, stack);
}

}  // extern "C"

// Stores the registers as a Registers, and calls `taker` with it and the caller's arguments on the stack.
#define PAVO_CAPTURE(name, taker)                                                                            \
    asm(".text\n.globl " name "\n.type " name ", @function\n" name ":\n"                                     \
        "push %rbp\nmov %rsp, %rbp\nsub $0x70, %rsp\n"                                                       \
        "mov %rdi, (%rsp)\nmov %rsi, 8(%rsp)\nmov %rdx, 16(%rsp)\n"                                          \
        "mov %rcx, 24(%rsp)\nmov %r8, 32(%rsp)\nmov %r9, 40(%rsp)\n"                                         \
        "movsd %xmm0, 48(%rsp)\nmovsd %xmm1, 56(%rsp)\nmovsd %xmm2, 64(%rsp)\nmovsd %xmm3, 72(%rsp)\n"       \
        "movsd %xmm4, 80(%rsp)\nmovsd %xmm5, 88(%rsp)\nmovsd %xmm6, 96(%rsp)\nmovsd %xmm7, 104(%rsp)\n"      \
        "mov %rsp, %rdi\nlea 16(%rbp), %rsi\ncall " taker "\nleave\nret\n.size " name ", .-" name "\n")

PAVO_CAPTURE("pavo_capture_message", "pavo_take_message");
PAVO_CAPTURE("pavo_capture_block", "pavo_take_block_call");

asm(".text\n.globl pavo_call\n.type pavo_call, @function\npavo_call:\n"
    "push %rbp\nmov %rsp, %rbp\nmov %rdi, %r11\nmov %rsi, %r10\n"
    "lea 1(%rcx), %rax\nand $-2, %rax\nshl $3, %rax\nsub %rax, %rsp\n"
    "xor %eax, %eax\n1: cmp %rcx, %rax\njae 2f\n"
    "mov (%rdx,%rax,8), %r8\nmov %r8, (%rsp,%rax,8)\ninc %rax\njmp 1b\n"
    "2: mov (%r10), %rdi\nmov 8(%r10), %rsi\nmov 16(%r10), %rdx\n"
    "mov 24(%r10), %rcx\nmov 32(%r10), %r8\nmov 40(%r10), %r9\n"
    "movsd 48(%r10), %xmm0\nmovsd 56(%r10), %xmm1\nmovsd 64(%r10), %xmm2\nmovsd 72(%r10), %xmm3\n"
    "movsd 80(%r10), %xmm4\nmovsd 88(%r10), %xmm5\nmovsd 96(%r10), %xmm6\nmovsd 104(%r10), %xmm7\n"
    "mov $8, %eax\ncall *%r11\nleave\nret\n.size pavo_call, .-pavo_call\n");
asm(".section .note.GNU-stack,\"\",@progbits\n.text\n");
