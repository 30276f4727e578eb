// An allocator/release pair for tests: it remembers every live block, can be
// told to fail the k-th allocation, and counts every misuse (a token not its
// own, a release of a block it never gave out or gave back already) instead
// of crashing, so a test can assert on it. Pass allocate / release as the
// callbacks and the allocator's address as the token.
#pragma once

#include <cstdlib>
#include <unordered_set>
#include <vector>

#include "nuvex.h"

namespace mivo_test {

class counting_allocator {
public:
    static void *allocate(size_t size, void *token)
    {
        auto *self = static_cast<counting_allocator *>(token);
        if (self == nullptr || self->magic_ != magic) {
            return nullptr; // not our token: the test sees the failure
        }
        self->sizes_.push_back(size);
        // Size 0 still gets a block of its own, so that a leak of it shows.
        void *p = self->sizes_.size() == self->fail_at_ ? nullptr : std::malloc(size == 0 ? 1 : size);
        if (p != nullptr) {
            self->live_.insert(p);
        }
        return p;
    }
    static void release(void *pointer, void *token)
    {
        auto *self = static_cast<counting_allocator *>(token);
        if (self == nullptr || self->magic_ != magic) {
            return; // cannot count it; leaking it makes LeakSanitizer report it
        }
        if (self->live_.erase(pointer) == 0) {
            ++self->misuses_;
            return;
        }
        ++self->releases_;
        std::free(pointer);
    }

    // Fail the k-th allocation attempt (1-based, counted from construction); 0 fails none.
    void fail_at(size_t k) { fail_at_ = k; }

    size_t attempts() const { return sizes_.size(); } // successful or failed
    size_t releases() const { return releases_; }
    size_t live() const { return live_.size(); }
    size_t misuses() const { return misuses_; }
    const std::vector<size_t> &sizes() const { return sizes_; } // asked sizes, in order

    ~counting_allocator()
    {
        for (void *p : live_) {
            std::free(p);
        }
    }

private:
    static constexpr unsigned magic = 0xA110CA7E;
    std::unordered_set<void *> live_;
    std::vector<size_t> sizes_;
    size_t fail_at_ = 0, releases_ = 0, misuses_ = 0;
    unsigned magic_ = magic;
};

} // namespace mivo_test
