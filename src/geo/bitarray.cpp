// Packed bool array: the parts that are more than a line. The invariant kept
// everywhere is that bits past size() in the last word are zero, so that the
// words compare and serialise without masking.
#include "geo/bitarray.h"

void BitArray::resize(size_t count, bool value)
{
    const size_t oldCount = count_;
    bits_.resize((count + 31) / 32, 0u);
    count_ = count;
    if (count > oldCount) {
        if (value)
            for (size_t i = oldCount; i < count; ++i) set(i, true);
    } else if (count & 31) {
        bits_.back() &= (1u << (count & 31)) - 1u;
    }
}

void BitArray::push_back(bool value)
{
    if ((count_ & 31) == 0) bits_.push_back(0u);
    ++count_;
    if (value) set(count_ - 1, true);
}

void BitArray::append(const BitArray& other)
{
    const size_t n = other.count_; // fixed before growing, for self-append
    const size_t base = count_;
    resize(base + n);
    for (size_t i = 0; i < n; ++i)
        if (other.get(i)) set(base + i, true);
}

void BitArray::insert(size_t i, bool value)
{
    push_back(false);
    for (size_t k = count_ - 1; k > i; --k) set(k, get(k - 1));
    set(i, value);
}

void BitArray::erase(size_t i)
{
    for (size_t k = i; k + 1 < count_; ++k) set(k, get(k + 1));
    pop_back();
}

void BitArray::reverse()
{
    for (size_t i = 0, j = count_; i + 1 < j; ++i, --j) {
        const bool a = get(i);
        set(i, get(j - 1));
        set(j - 1, a);
    }
}
