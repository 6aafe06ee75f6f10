#pragma once

// The blocks runtime's documented interface.

extern "C" {

// A block on the heap: the same one with a reference more, or a copy of one on the stack.
void* _Block_copy(const void* block);
void _Block_release(const void* block);

}  // extern "C"
