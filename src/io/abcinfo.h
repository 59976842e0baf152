// AbcInfo: what an Alembic read reports back to its caller through fileio::read,
// next to the Body it fills. The Read node uses it to blend between samples and to
// know how long an archive is. Plain data; the Alembic reader fills every field.
#pragma once

struct AbcInfo {
    int sampleIndex = 0;          // floor sample index of the last object read
    int sampleIndexBefore = 0;    // the index that object held before this read
    float blend = 0.f;            // blend factor between that sample and the next
    float blendBefore = 0.f;      // the blend factor before this read
    int maxSamples = 0;           // largest sample count over the objects read
};
