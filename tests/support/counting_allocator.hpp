// An allocator/release pair for tests: it counts, remembers every live block,
// can be told to fail the k-th allocation, and records every misuse (a wrong
// token, a release of a pointer it never gave out, a second release) instead
// of crashing, so a test can assert on it.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "nuvex.h"

namespace mivo_test {

class counting_allocator {
public:
    // Pass these as alloc_p / free_p and the allocator's address as the token.
    static void *allocate(size_t size, void *token);
    static void release(void *pointer, void *token);

    // Fail the k-th allocation attempt made through this allocator (1-based,
    // counted from its construction); 0 fails none.
    void fail_at(size_t k) { fail_at_ = k; }

    size_t allocations() const { return allocations_; } // successful ones
    size_t attempts() const { return attempts_; }        // successful or failed
    size_t releases() const { return releases_; }
    size_t live() const { return live_.size(); }
    const std::vector<size_t> &sizes() const { return sizes_; } // asked sizes, in order
    size_t misuses() const { return misuses_; } // wrong token, foreign or double release

    bool owns(const void *pointer) const { return live_.count(const_cast<void *>(pointer)) != 0; }

    // Hands back everything still live (after a test has judged the leak).
    void release_all();

    ~counting_allocator() { release_all(); }

private:
    static counting_allocator *from(void *token);

    std::unordered_map<void *, size_t> live_;
    std::vector<size_t> sizes_;
    size_t fail_at_ = 0;
    size_t allocations_ = 0;
    size_t attempts_ = 0;
    size_t releases_ = 0;
    size_t misuses_ = 0;
    unsigned magic_ = 0xA110CA7E;
};

} // namespace mivo_test
