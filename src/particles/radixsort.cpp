// American flag sort over 32-bit keys with a payload. One pass counts the digit at `shift`,
// then walks each bucket and swaps every element into the bucket its digit names until
// the bucket is full; the buckets are then sorted on the next lower digit. Small buckets
// end in insertion sort, which beats another counting pass below about 64 entries.
#include "particles/radixsort.h"

#include <algorithm>
#include <array>

namespace {

constexpr int kRadixBits = 8;
constexpr int kBuckets = 1 << kRadixBits;
constexpr int kTopShift = 24;  // first digit: bits 24..31

using Offsets = std::array<size_t, kBuckets + 1>;

inline uint32_t digit(uint32_t key, int shift) { return (key >> shift) & (kBuckets - 1); }

void insertionSort(uint32_t* keys, uint32_t* payload, size_t count)
{
    for (size_t i = 1; i < count; ++i) {
        const uint32_t key = keys[i];
        const uint32_t value = payload[i];
        size_t j = i;
        while (j > 0 && keys[j - 1] > key) {
            keys[j] = keys[j - 1];
            payload[j] = payload[j - 1];
            --j;
        }
        keys[j] = key;
        payload[j] = value;
    }
}

// Distributes the range into 256 buckets by the digit at `shift`; `bounds` receives the
// bucket starts (bounds[256] = count). Answers false, without moving anything, when every
// key falls into one bucket.
bool distribute(uint32_t* keys, uint32_t* payload, size_t count, int shift, Offsets& bounds)
{
    std::array<size_t, kBuckets> sizes{};
    for (size_t i = 0; i < count; ++i) ++sizes[digit(keys[i], shift)];

    std::array<size_t, kBuckets> heads{};
    std::array<size_t, kBuckets> tails{};
    size_t start = 0;
    bool oneBucket = false;
    for (int b = 0; b < kBuckets; ++b) {
        bounds[size_t(b)] = start;
        heads[size_t(b)] = start;
        start += sizes[size_t(b)];
        tails[size_t(b)] = start;
        if (sizes[size_t(b)] == count) oneBucket = true;
    }
    bounds[kBuckets] = count;
    if (oneBucket) return false;

    // Cycle leader: the element at a bucket's head is swapped into the bucket its digit
    // names until one belongs here; every element is written once to its final bucket.
    for (int b = 0; b < kBuckets; ++b) {
        size_t& head = heads[size_t(b)];
        const size_t tail = tails[size_t(b)];
        while (head < tail) {
            uint32_t key = keys[head];
            uint32_t value = payload[head];
            uint32_t d = digit(key, shift);
            while (d != uint32_t(b)) {
                const size_t slot = heads[d]++;
                std::swap(key, keys[slot]);
                std::swap(value, payload[slot]);
                d = digit(key, shift);
            }
            keys[head] = key;
            payload[head] = value;
            ++head;
        }
    }
    return true;
}

void sortRange(uint32_t* keys, uint32_t* payload, size_t count, int shift);

// Sorts each bucket of a distributed range on the digits below `shift`.
void sortBuckets(uint32_t* keys, uint32_t* payload, const Offsets& bounds, int shift)
{
    if (shift == 0) return;  // the last digit was the lowest: buckets hold equal keys
    for (int b = 0; b < kBuckets; ++b) {
        const size_t begin = bounds[size_t(b)];
        sortRange(keys + begin, payload + begin, bounds[size_t(b) + 1] - begin, shift - kRadixBits);
    }
}

void sortRange(uint32_t* keys, uint32_t* payload, size_t count, int shift)
{
    if (count < 2) return;
    if (count < kRadixInsertionLimit) {
        insertionSort(keys, payload, count);
        return;
    }
    for (; shift >= 0; shift -= kRadixBits) {
        Offsets bounds;
        if (distribute(keys, payload, count, shift, bounds)) {
            sortBuckets(keys, payload, bounds, shift);
            return;
        }
        // One bucket held everything: the same range goes on with the next digit.
    }
}

} // namespace

void radixSortPairs(uint32_t* keys, uint32_t* payload, size_t count, int numThreads)
{
    if (count < 2) return;
    if (numThreads <= 1 || count < kRadixInsertionLimit) {
        sortRange(keys, payload, count, kTopShift);
        return;
    }
    // The first pass that divides the keys runs alone; its buckets are independent and are
    // sorted in parallel. Dynamic scheduling because bucket sizes can differ by orders of
    // magnitude; the result doesn't depend on which thread sorts which bucket.
    for (int shift = kTopShift; shift >= 0; shift -= kRadixBits) {
        Offsets bounds;
        if (!distribute(keys, payload, count, shift, bounds)) continue;
        if (shift == 0) return;
#pragma omp parallel for schedule(dynamic, 1) num_threads(numThreads)
        for (int b = 0; b < kBuckets; ++b) {
            const size_t begin = bounds[size_t(b)];
            sortRange(keys + begin, payload + begin, bounds[size_t(b) + 1] - begin, shift - kRadixBits);
        }
        return;
    }
}
