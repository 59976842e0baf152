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
    int pointSamples = 0;         // sample counts of the points, meshes and transforms read
    int meshSamples = 0;
    int xformSamples = 0;

    // Whether the archive behind the last read holds no animation, judged against the
    // sample index seen before (`previousIndex`).
    bool isStatic(int previousIndex) const
    {
        return sampleIndex == previousIndex && pointSamples <= 1 && meshSamples <= 1 && xformSamples <= 1 &&
               maxSamples <= 1;
    }
};
