// Packed array of bools, 32 per word, used for bool attributes. Unlike
// std::vector<bool> it exposes its words (for file writers and GPU uploads) and
// offers atomic set/clear so that parallel loops over points can mark
// neighbouring points without losing each other's bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class BitArray {
public:
    BitArray() = default;
    explicit BitArray(size_t count, bool value = false) { resize(count, value); }

    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    void clear()
    {
        bits_.clear();
        count_ = 0;
    }
    // New bits take `value`; shrinking clears the bits past the end.
    void resize(size_t count, bool value = false);

    bool get(size_t i) const { return (bits_[i >> 5] >> (i & 31)) & 1u; }
    bool operator[](size_t i) const { return get(i); }
    void set(size_t i, bool value)
    {
        const uint32_t mask = 1u << (i & 31);
        if (value)
            bits_[i >> 5] |= mask;
        else
            bits_[i >> 5] &= ~mask;
    }
    // Safe against concurrent setAtomic/clearAtomic on other bits of the same word.
    void setAtomic(size_t i) { __atomic_fetch_or(&bits_[i >> 5], 1u << (i & 31), __ATOMIC_RELAXED); }
    void clearAtomic(size_t i) { __atomic_fetch_and(&bits_[i >> 5], ~(1u << (i & 31)), __ATOMIC_RELAXED); }

    void push_back(bool value);
    void pop_back() { resize(count_ - 1); }
    // Appends all bits of `other`, bit by bit (works when other is *this).
    void append(const BitArray& other);
    // Order-preserving insert and erase; linear time.
    void insert(size_t i, bool value);
    void erase(size_t i);
    void reverse();

    const uint32_t* words() const { return bits_.data(); }
    size_t numWords() const { return bits_.size(); }

    bool operator==(const BitArray& o) const { return count_ == o.count_ && bits_ == o.bits_; }
    bool operator!=(const BitArray& o) const { return !(*this == o); }

private:
    std::vector<uint32_t> bits_; // bits past count_ are always zero
    size_t count_ = 0;
};
