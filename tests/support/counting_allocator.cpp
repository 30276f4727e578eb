#include "counting_allocator.hpp"

#include <cstdlib>

namespace mivo_test {

counting_allocator *counting_allocator::from(void *token)
{
    auto *self = static_cast<counting_allocator *>(token);
    return (self != nullptr && self->magic_ == 0xA110CA7E) ? self : nullptr;
}

void *counting_allocator::allocate(size_t size, void *token)
{
    counting_allocator *self = from(token);
    if (self == nullptr) {
        return nullptr; // a token that is not ours: the test sees the failure
    }
    self->sizes_.push_back(size);
    if (++self->attempts_ == self->fail_at_) {
        return nullptr;
    }
    // Size 0 still gets a distinct block, so a leak of it is visible.
    void *p = std::malloc(size == 0 ? 1 : size);
    if (p != nullptr) {
        self->live_.emplace(p, size);
        ++self->allocations_;
    }
    return p;
}

void counting_allocator::release(void *pointer, void *token)
{
    counting_allocator *self = from(token);
    if (self == nullptr) {
        return; // cannot count it; leaking it makes the misuse show in LSan
    }
    auto it = self->live_.find(pointer);
    if (pointer == nullptr || it == self->live_.end()) {
        ++self->misuses_;
        return;
    }
    self->live_.erase(it);
    ++self->releases_;
    std::free(pointer);
}

void counting_allocator::release_all()
{
    for (auto &entry : live_) {
        std::free(entry.first);
    }
    live_.clear();
}

} // namespace mivo_test
