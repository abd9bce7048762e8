// ring.h - a queue that takes memory only when it is asked to make room.
#pragma once

#include <bit>
#include <cstddef>
#include <type_traits>
#include <vector>

namespace kiv {

template <class T> class Ring {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    // Room for `n` elements in all; throws std::bad_alloc and stays as it was.
    void reserve(size_t n)
    {
        if (n <= slots_.size())
            return;
        std::vector<T> larger(std::bit_ceil(n < 8 ? 8 : n));
        for (size_t i = 0; i < size_; ++i)
            larger[i] = (*this)[i];
        slots_.swap(larger);
        first_ = 0;
    }

    // There must be room and an element, respectively.
    T& pushBack(const T& value = T())
    {
        T& slot = slots_[(first_ + size_++) & (slots_.size() - 1)];
        slot = value;
        return slot;
    }
    T popFront()
    {
        const T value = (*this)[0];
        discardFront();
        return value;
    }
    void discardFront()
    {
        ++first_;
        --size_;
    }
    T& operator[](size_t i) { return slots_[(first_ + i) & (slots_.size() - 1)]; }

private:
    std::vector<T> slots_;  // a power of two of them
    size_t first_ = 0;
    size_t size_ = 0;
};

}  // namespace kiv
