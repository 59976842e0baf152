// In-place MSD radix sort of 32-bit keys that carry a 32-bit payload: the sort behind the
// particle hash (keys are bucket numbers, the payload particle indices) and behind the
// granular solver's block grouping. Needs no scratch memory, so a solver step that sorts
// every substep allocates nothing.
#pragma once

#include <cstddef>
#include <cstdint>

// A range of fewer entries than this is finished by insertion sort.
constexpr size_t kRadixInsertionLimit = 65;

// Sorts keys[0..count) ascending and applies the same permutation to payload. American
// flag sort: 256 buckets a pass, from bit 24 down by 8, elements moved by cycle-leader
// swaps. Equal keys end in no promised order, but the result depends only on the input:
// with numThreads > 1 the buckets of the first dividing pass are sorted in parallel, each
// by the same sequential code, so any thread count gives the same output.
void radixSortPairs(uint32_t* keys, uint32_t* payload, size_t count, int numThreads = 1);
