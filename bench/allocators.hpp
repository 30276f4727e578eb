// The allocators our codec is handed through its callback in the benchmarks
// and the instruction-count driver: malloc, and a bump arena.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace bench {

inline void *heap_alloc(size_t size, void *) { return std::malloc(size); }
inline void heap_free(void *p, void *) { std::free(p); }

inline constexpr size_t arena_size = 1 << 20;

// A bump allocator handed to our codec through the token: allocation is a
// pointer increment, release a no-op, and the arena is reset per iteration.
class bump_arena {
public:
    explicit bump_arena(size_t size) : memory_(new unsigned char[size]), size_(size) {}
    void reset() { used_ = 0; }
    static void *alloc(size_t size, void *token)
    {
        auto *a = static_cast<bump_arena *>(token);
        const size_t at = (a->used_ + 15) & ~size_t{15};
        if (at + size > a->size_) {
            return nullptr;
        }
        a->used_ = at + size;
        return a->memory_.get() + at;
    }
    static void free(void *, void *) {}

private:
    std::unique_ptr<unsigned char[]> memory_;
    size_t size_;
    size_t used_ = 0;
};

} // namespace bench
