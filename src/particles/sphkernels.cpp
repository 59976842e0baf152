// The SPH density and force passes over sorted slots. The density pass runs over chunks of
// slots in parallel; on processors with AVX2 its candidate test is 8 lanes wide over the
// component arrays. The force pass reads the pairs the density pass recorded, so it does
// no search and no distance rejection of its own.
#include "particles/sphkernels.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define QORVA_SPH_AVX2 1
#endif

namespace {

const double kPi = std::atan2(0.0, -1.0);

// Grids of more cells than this many per particle fall back to the bucket hash.
constexpr size_t kGridCellsPerParticle = 8;
constexpr size_t kGridMinCells = size_t(1) << 20;

// The slot runs [begin, end) of the 27 cells round p: 9 rows of the grid, or the distinct
// buckets of the hash among the 27.
struct Runs {
    uint32_t begin[27];
    uint32_t end[27];
    int count = 0;
    uint32_t candidates = 0;
};

void neighbourRuns(const SphPassData& d, const CellHasher& hasher, const Vec4f& p, Runs& runs)
{
    const SphArrays& s = *d.arrays;
    if (s.gridInUse) {
        s.grid.rowRuns(s.grid.cellIndex(p), runs.begin, runs.end);
        runs.count = 9;
    } else {
        runs.count = 0;
        forEachNeighbourRun(p, hasher, s.cellStart.data(), s.cellEnd.data(), [&](uint32_t first, uint32_t last) {
            // Two of the 27 cells may share a bucket: its particles count once.
            for (int r = 0; r < runs.count; ++r)
                if (runs.begin[r] == first) return;
            runs.begin[runs.count] = first;
            runs.end[runs.count] = last + 1;
            ++runs.count;
        });
    }
    runs.candidates = 0;
    for (int r = 0; r < runs.count; ++r) runs.candidates += runs.end[r] - runs.begin[r];
}

// Sum of (h^2 - d^2)^3 over the candidates with d = |p - q| + offset < h, other than
// `self`; their slots go to out[used...].
float densitySumScalar(const SphConstants& k, const SphArrays& s, uint32_t self, const Vec4f& p, const Runs& runs,
                       uint32_t* out, uint32_t& used)
{
    const float cut = std::max(k.h - k.distanceOffset, 0.f);
    const float reject2 = cut * cut * 1.0001f; // spares the far candidates' square roots
    float sum = 0.f;
    for (int r = 0; r < runs.count; ++r) {
        for (uint32_t j = runs.begin[r]; j < runs.end[r]; ++j) {
            const float dx = p.x - s.x[j], dy = p.y - s.y[j], dz = p.z - s.z[j];
            const float r2 = dx * dx + dy * dy + dz * dz;
            if (r2 > reject2 || j == self) continue;
            const float dist = std::sqrt(r2) + k.distanceOffset;
            if (dist < k.h) {
                const float w = k.h2 - dist * dist;
                sum += w * w * w;
                out[used++] = j;
            }
        }
    }
    return sum;
}

// cos(x) for x in [0, pi/2] by its Taylor series to x^12, within 1e-8 there: the
// coefficients of x^12, x^10, ... x^0 for Horner's rule in x^2. The pair distances of the
// force pass keep d * wave below pi/2.
constexpr float kCosSeries[] = {1.f / 479001600.f, -1.f / 3628800.f, 1.f / 40320.f, -1.f / 720.f,
                                1.f / 24.f,        -1.f / 2.f,       1.f};

inline float cosQuarterTurn(float x)
{
    const float x2 = x * x;
    float c = kCosSeries[0];
    for (size_t n = 1; n < std::size(kCosSeries); ++n) c = c * x2 + kCosSeries[n];
    return c;
}

#ifdef QORVA_SPH_AVX2
// For every 8-bit lane mask, the numbers of its set lanes in ascending order: the
// permutation that packs the chosen lanes of a vector to its front.
struct PackLanes {
    uint8_t lanes[256][8];
    PackLanes()
    {
        for (unsigned m = 0; m < 256; ++m) {
            int n = 0;
            for (uint8_t l = 0; l < 8; ++l)
                if (m & (1u << l)) lanes[m][n++] = l;
            while (n < 8) lanes[m][n++] = 0;
        }
    }
};
const PackLanes kPackLanes;

__attribute__((target("avx2,fma"))) inline float horizontalSum(__m256 a)
{
    const __m128 half = _mm_add_ps(_mm256_castps256_ps128(a), _mm256_extractf128_ps(a, 1));
    const __m128 pair = _mm_add_ps(half, _mm_movehl_ps(half, half));
    return _mm_cvtss_f32(_mm_add_ss(pair, _mm_shuffle_ps(pair, pair, 1)));
}

__attribute__((target("avx2,fma"))) float densitySumAvx2(const SphConstants& k, const SphArrays& s, uint32_t self,
                                                         const Vec4f& p, const Runs& runs, uint32_t* out,
                                                         uint32_t& used)
{
    const __m256 px = _mm256_set1_ps(p.x), py = _mm256_set1_ps(p.y), pz = _mm256_set1_ps(p.z);
    const __m256 h = _mm256_set1_ps(k.h), h2 = _mm256_set1_ps(k.h2), offset = _mm256_set1_ps(k.distanceOffset);
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i selfv = _mm256_set1_epi32(int32_t(self));
    const float* X = s.x.data();
    const float* Y = s.y.data();
    const float* Z = s.z.data();
    __m256 acc = _mm256_setzero_ps();
    for (int r = 0; r < runs.count; ++r) {
        const __m256i endv = _mm256_set1_epi32(int32_t(runs.end[r]));
        for (uint32_t j = runs.begin[r]; j < runs.end[r]; j += 8) {
            const __m256i idx = _mm256_add_epi32(_mm256_set1_epi32(int32_t(j)), lanes);
            const __m256 dx = _mm256_sub_ps(px, _mm256_loadu_ps(X + j));
            const __m256 dy = _mm256_sub_ps(py, _mm256_loadu_ps(Y + j));
            const __m256 dz = _mm256_sub_ps(pz, _mm256_loadu_ps(Z + j));
            const __m256 r2 = _mm256_fmadd_ps(dz, dz, _mm256_fmadd_ps(dy, dy, _mm256_mul_ps(dx, dx)));
            const __m256 dist = _mm256_add_ps(_mm256_sqrt_ps(r2), offset);
            // Lanes past the run's end and the slot itself don't count.
            const __m256i valid = _mm256_andnot_si256(_mm256_cmpeq_epi32(idx, selfv), _mm256_cmpgt_epi32(endv, idx));
            const __m256 close = _mm256_and_ps(_mm256_cmp_ps(dist, h, _CMP_LT_OQ), _mm256_castsi256_ps(valid));
            const __m256 w = _mm256_fnmadd_ps(dist, dist, h2);
            acc = _mm256_add_ps(acc, _mm256_and_ps(close, _mm256_mul_ps(_mm256_mul_ps(w, w), w)));
            // The close lanes' slots, packed to the front and stored 8 wide: no branch per
            // pair. The buffer has room for the overshoot.
            const unsigned bits = unsigned(_mm256_movemask_ps(close));
            const __m256i pack = _mm256_cvtepu8_epi32(_mm_loadl_epi64(
                reinterpret_cast<const __m128i*>(kPackLanes.lanes[bits])));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + used), _mm256_permutevar8x32_epi32(idx, pack));
            used += uint32_t(__builtin_popcount(bits));
        }
    }
    return horizontalSum(acc);
}

bool haveAvx2()
{
    static const bool yes = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    return yes;
}

// The force pass's pair sum of one slot, 8 recorded pairs at a time. sum gets the
// pressure, viscosity and stringiness part, tension the surface tension.
__attribute__((target("avx2,fma"))) void pairForcesAvx2(const SphConstants& k, const SphPassData& d,
                                                        uint32_t slot, const uint32_t* list, uint32_t count,
                                                        Vec4f& sum, Vec4f& tension)
{
    const SphArrays& s = *d.arrays;
    const Vec4f p = s.sortedPos[slot];
    const Vec4f v = s.sortedVel[slot];
    const uint32_t i = s.sortedOrder[slot];
    const __m256 px = _mm256_set1_ps(p.x), py = _mm256_set1_ps(p.y), pz = _mm256_set1_ps(p.z);
    const __m256 vx = _mm256_set1_ps(v.x), vy = _mm256_set1_ps(v.y), vz = _mm256_set1_ps(v.z);
    const __m256 pi = _mm256_set1_ps(s.sortedPressure[slot]);
    const __m256 h = _mm256_set1_ps(k.h), offset = _mm256_set1_ps(k.distanceOffset), zero = _mm256_setzero_ps();
    const __m256 pressureCoef = _mm256_set1_ps(-0.5f * k.spikyGrad);
    const __m256 viscPlain = _mm256_set1_ps(k.viscLap * k.visc);
    const __m256 viscOwn = _mm256_set1_ps(d.viscosity ? d.viscosity[i] : 0.f);
    const __m256 viscPair = _mm256_set1_ps(k.invR * 0.5f * k.viscLap);
    const __m256 tensionOwn = _mm256_set1_ps(d.surfaceTension ? d.surfaceTension[i] : 0.f);
    const __m256 stringCoef = _mm256_set1_ps(k.viscLap * k.string);
    const __m256 mass = _mm256_set1_ps(k.mass), wave = _mm256_set1_ps(k.wave);
    const __m256 half = _mm256_set1_ps(0.5f), one = _mm256_set1_ps(1.f);
    const __m256 weightPlain = _mm256_set1_ps(k.surfaceTension);
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i countv = _mm256_set1_epi32(int32_t(count));
    const __m256i selfv = _mm256_set1_epi32(int32_t(slot));
    const float* vel = reinterpret_cast<const float*>(s.sortedVel.data());
    __m256 sx = zero, sy = zero, sz = zero, tx = zero, ty = zero, tz = zero;
    for (uint32_t m = 0; m < count; m += 8) {
        const __m256i valid = _mm256_cmpgt_epi32(countv, _mm256_add_epi32(_mm256_set1_epi32(int32_t(m)), lanes));
        // Lanes past the list read the slot itself, a safe address; their terms are masked.
        const __m256i other = _mm256_blendv_epi8(
            selfv, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(list + m)), valid);
        const __m256 rx = _mm256_sub_ps(px, _mm256_i32gather_ps(s.x.data(), other, 4));
        const __m256 ry = _mm256_sub_ps(py, _mm256_i32gather_ps(s.y.data(), other, 4));
        const __m256 rz = _mm256_sub_ps(pz, _mm256_i32gather_ps(s.z.data(), other, 4));
        const __m256 r2 = _mm256_fmadd_ps(rz, rz, _mm256_fmadd_ps(ry, ry, _mm256_mul_ps(rx, rx)));
        const __m256 pairDist = _mm256_add_ps(_mm256_sqrt_ps(r2), offset);
        // Coincident particles without an offset have no direction: no pair force. Lanes
        // left out compute with d = h, which keeps every term finite, and are masked.
        const __m256 use = _mm256_and_ps(_mm256_castsi256_ps(valid),
                                         _mm256_and_ps(_mm256_cmp_ps(pairDist, h, _CMP_LT_OQ),
                                                       _mm256_cmp_ps(pairDist, zero, _CMP_GT_OQ)));
        const __m256 dist = _mm256_blendv_ps(h, pairDist, use);
        const __m256 invDist = _mm256_div_ps(one, dist);
        const __m256 dirx = _mm256_mul_ps(rx, invDist), diry = _mm256_mul_ps(ry, invDist),
                     dirz = _mm256_mul_ps(rz, invDist);
        const __m256i o4 = _mm256_slli_epi32(other, 2);
        const __m256 ux = _mm256_sub_ps(_mm256_i32gather_ps(vel, o4, 4), vx);
        const __m256 uy = _mm256_sub_ps(_mm256_i32gather_ps(vel + 1, o4, 4), vy);
        const __m256 uz = _mm256_sub_ps(_mm256_i32gather_ps(vel + 2, o4, 4), vz);
        const __m256 a = _mm256_sub_ps(h, dist);
        const __m256 pj = _mm256_i32gather_ps(s.sortedPressure.data(), other, 4);
        const __m256 press =
            _mm256_mul_ps(_mm256_mul_ps(_mm256_add_ps(pi, pj), pressureCoef), _mm256_mul_ps(_mm256_mul_ps(a, a), invDist));
        __m256 visc = _mm256_mul_ps(viscPlain, a);
        __m256 weight = weightPlain;
        if (d.viscosity || d.surfaceTension) {
            const __m256i j = _mm256_i32gather_epi32(reinterpret_cast<const int*>(s.sortedOrder.data()), other, 4);
            if (d.viscosity)
                visc = _mm256_mul_ps(_mm256_mul_ps(_mm256_add_ps(viscOwn, _mm256_i32gather_ps(d.viscosity, j, 4)),
                                                   viscPair),
                                     a);
            if (d.surfaceTension)
                weight = _mm256_mul_ps(_mm256_add_ps(tensionOwn, _mm256_i32gather_ps(d.surfaceTension, j, 4)), half);
        }
        const __m256 ur = _mm256_fmadd_ps(uz, rz, _mm256_fmadd_ps(uy, ry, _mm256_mul_ps(ux, rx)));
        const __m256 str = _mm256_mul_ps(_mm256_mul_ps(stringCoef, a), ur);
        const __m256 share = _mm256_and_ps(use, _mm256_div_ps(mass, _mm256_i32gather_ps(s.sortedDensity.data(), other, 4)));
        sx = _mm256_fmadd_ps(_mm256_fmadd_ps(press, rx, _mm256_fmadd_ps(visc, ux, _mm256_mul_ps(str, dirx))), share, sx);
        sy = _mm256_fmadd_ps(_mm256_fmadd_ps(press, ry, _mm256_fmadd_ps(visc, uy, _mm256_mul_ps(str, diry))), share, sy);
        sz = _mm256_fmadd_ps(_mm256_fmadd_ps(press, rz, _mm256_fmadd_ps(visc, uz, _mm256_mul_ps(str, dirz))), share, sz);
        // cos(d * wave) by the series of cosQuarterTurn.
        const __m256 x = _mm256_mul_ps(dist, wave);
        const __m256 x2 = _mm256_mul_ps(x, x);
        __m256 c = _mm256_set1_ps(kCosSeries[0]);
        for (size_t n = 1; n < std::size(kCosSeries); ++n) c = _mm256_fmadd_ps(c, x2, _mm256_set1_ps(kCosSeries[n]));
        const __m256 pull = _mm256_and_ps(use, _mm256_mul_ps(c, weight));
        tx = _mm256_fnmadd_ps(pull, dirx, tx);
        ty = _mm256_fnmadd_ps(pull, diry, ty);
        tz = _mm256_fnmadd_ps(pull, dirz, tz);
    }
    sum = Vec4f(horizontalSum(sx), horizontalSum(sy), horizontalSum(sz), 0.f);
    tension = Vec4f(horizontalSum(tx), horizontalSum(ty), horizontalSum(tz), 0.f);
}
#endif

// The force pass's pair sum of one slot over its recorded pairs: sum gets the pressure,
// viscosity and stringiness part, tension the surface tension.
void pairForcesScalar(const SphConstants& k, const SphPassData& d, uint32_t slot, const uint32_t* list,
                      uint32_t count, Vec4f& sum, Vec4f& tension)
{
    const SphArrays& s = *d.arrays;
    const uint32_t i = s.sortedOrder[slot];
    const Vec4f p = s.sortedPos[slot];
    const Vec4f v = s.sortedVel[slot];
    const float pi = s.sortedPressure[slot];
    const float pressureCoef = -0.5f * k.spikyGrad;
    float sx = 0.f, sy = 0.f, sz = 0.f, tx = 0.f, ty = 0.f, tz = 0.f;
    for (uint32_t m = 0; m < count; ++m) {
        const uint32_t other = list[m];
        const Vec4f q = s.sortedPos[other];
        const float rx = p.x - q.x, ry = p.y - q.y, rz = p.z - q.z;
        const float dist = std::sqrt(rx * rx + ry * ry + rz * rz) + k.distanceOffset;
        // Coincident particles without an offset have no direction: no pair force.
        if (!(dist < k.h) || !(dist > 0.f)) continue;
        const float invDist = 1.f / dist;
        const float dirx = rx * invDist, diry = ry * invDist, dirz = rz * invDist;
        const Vec4f w = s.sortedVel[other];
        const float ux = w.x - v.x, uy = w.y - v.y, uz = w.z - v.z;
        const float a = k.h - dist;
        const float press = (pi + s.sortedPressure[other]) * pressureCoef * a * a * invDist;
        float visc = k.viscLap * k.visc * a;
        float weight = k.surfaceTension;
        if (d.viscosity || d.surfaceTension) {
            const uint32_t j = s.sortedOrder[other];
            if (d.viscosity) visc = (d.viscosity[i] + d.viscosity[j]) * k.invR * 0.5f * k.viscLap * a;
            if (d.surfaceTension) weight = (d.surfaceTension[i] + d.surfaceTension[j]) * 0.5f;
        }
        const float str = k.viscLap * k.string * a * (ux * rx + uy * ry + uz * rz);
        const float share = k.mass / s.sortedDensity[other];
        sx += (press * rx + visc * ux + str * dirx) * share;
        sy += (press * ry + visc * uy + str * diry) * share;
        sz += (press * rz + visc * uz + str * dirz) * share;
        const float pull = cosQuarterTurn(dist * k.wave) * weight;
        tx -= pull * dirx;
        ty -= pull * diry;
        tz -= pull * dirz;
    }
    sum = Vec4f(sx, sy, sz, 0.f);
    tension = Vec4f(tx, ty, tz, 0.f);
}

} // namespace

SphConstants makeSphConstants(float h, float mass, float restDensity, float pressureScale, float resolution,
                              float viscosity, float stringiness, float surfaceTensionWeight,
                              float clampForce, bool nodeForm)
{
    SphConstants k;
    k.h = h;
    k.h2 = h * h;
    k.mass = mass;
    k.restDensity = restDensity;
    k.pressureScale = pressureScale;
    const double hd = h;
    k.densityCoef = float(315.0 / (64.0 * kPi * std::pow(hd, 9.0)) * double(mass));
    k.spikyGrad = float(-45.0 / (std::pow(hd, 6.0) * kPi));
    k.viscLap = float(45.0 / (std::pow(hd, 6.0) * kPi));
    const double r = std::pow(double(resolution), 1.5);
    k.invR = r > 0.0 ? float(1.0 / r) : 0.f;
    k.visc = viscosity * k.invR;
    k.string = stringiness * k.invR;
    k.wave = float(1.5 * kPi / (3.0 * hd));
    k.surfaceTension = surfaceTensionWeight;
    k.clampForce = clampForce;
    k.distanceOffset = nodeForm ? 0.f : 0.00001f;
    k.densitySeed = nodeForm ? 0.f : 0.00000001f;
    return k;
}

void SphArrays::sort(const Vec4f* P, const Vec4f* v, size_t count, float h, int numThreads)
{
    const int threads = std::max(1, numThreads);
    hash.cellSize = h;
    const size_t maxCells = std::max(kGridMinCells, count * kGridCellsPerParticle);
    gridInUse = allowGrid && grid.fit(P, count, h, maxCells, threads);
    if (gridInUse)
        grid.sort(P, count, hashKeys, sortedOrder, threads);
    else
        buildParticleHash(P, count, hash, hashKeys, sortedOrder, cellStart, cellEnd, threads);

    sortedPos.resize(count);
    sortedVel.resize(count);
    sortedDensity.resize(count);
    sortedPressure.resize(count);
    x.resize(count + kPadding, 0.f);
    y.resize(count + kPadding, 0.f);
    z.resize(count + kPadding, 0.f);
    const int64_t n = int64_t(count);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t k = 0; k < n; ++k) {
        const uint32_t i = sortedOrder[size_t(k)];
        const Vec4f p = P[i];
        sortedPos[size_t(k)] = p;
        sortedVel[size_t(k)] = v ? v[i] : Vec4f();
        x[size_t(k)] = p.x;
        y[size_t(k)] = p.y;
        z[size_t(k)] = p.z;
    }
}

void sphDensityPass(const SphConstants& k, SphPassData& d, int numThreads)
{
    SphArrays& s = *d.arrays;
    const CellHasher hasher(s.hash);
    const size_t count = s.count();
    const uint32_t chunkSlots = SphArrays::kChunkSlots;
    const int64_t chunks = int64_t((count + chunkSlots - 1) / chunkSlots);
    if (s.chunks.size() < size_t(chunks)) s.chunks.resize(size_t(chunks));
#ifdef QORVA_SPH_AVX2
    const bool wide = s.allowWide && haveAvx2();
#endif
#pragma omp parallel for schedule(dynamic, 4) num_threads(std::max(1, numThreads))
    for (int64_t c = 0; c < chunks; ++c) {
        SphArrays::Chunk& chunk = s.chunks[size_t(c)];
        chunk.offsets.resize(chunkSlots + 1);
        const uint32_t first = uint32_t(c) * chunkSlots;
        const uint32_t last = std::min(uint32_t(count), first + chunkSlots);
        uint32_t used = 0;
        Runs runs;
        for (uint32_t slot = first; slot < last; ++slot) {
            chunk.offsets[slot - first] = used;
            const Vec4f p = s.sortedPos[slot];
            neighbourRuns(d, hasher, p, runs);
            // Room for every candidate plus the 8-wide loop's overshoot.
            const size_t need = size_t(used) + runs.candidates + 8;
            if (chunk.pairs.size() < need) chunk.pairs.resize(std::max(need, chunk.pairs.size() * 2));
            uint32_t* out = chunk.pairs.data();
#ifdef QORVA_SPH_AVX2
            const float sum = wide ? densitySumAvx2(k, s, slot, p, runs, out, used)
                                   : densitySumScalar(k, s, slot, p, runs, out, used);
#else
            const float sum = densitySumScalar(k, s, slot, p, runs, out, used);
#endif
            const float density = k.densityCoef * (k.densitySeed + sum) + kSphDensityFloor;
            const float pressure = sphPressure(density, k.restDensity, k.pressureScale);
            s.sortedDensity[slot] = density;
            s.sortedPressure[slot] = pressure;
            const uint32_t i = s.sortedOrder[slot];
            if (d.density) d.density[i] = density;
            if (d.pressure) d.pressure[i] = pressure;
        }
        chunk.offsets[last - first] = used;
    }
}

void sphForcePass(const SphConstants& k, SphPassData& d, int numThreads)
{
    const SphArrays& s = *d.arrays;
    const size_t count = s.count();
    const uint32_t chunkSlots = SphArrays::kChunkSlots;
    const int64_t chunks = int64_t((count + chunkSlots - 1) / chunkSlots);
#ifdef QORVA_SPH_AVX2
    const bool wide = s.allowWide && haveAvx2();
#endif
#pragma omp parallel for schedule(dynamic, 4) num_threads(std::max(1, numThreads))
    for (int64_t c = 0; c < chunks; ++c) {
        const SphArrays::Chunk& chunk = s.chunks[size_t(c)];
        const uint32_t first = uint32_t(c) * chunkSlots;
        const uint32_t last = std::min(uint32_t(count), first + chunkSlots);
        for (uint32_t slot = first; slot < last; ++slot) {
            const uint32_t* list = chunk.pairs.data() + chunk.offsets[slot - first];
            const uint32_t listed = chunk.offsets[slot - first + 1] - chunk.offsets[slot - first];
            Vec4f sum, tension;
#ifdef QORVA_SPH_AVX2
            if (wide)
                pairForcesAvx2(k, d, slot, list, listed, sum, tension);
            else
                pairForcesScalar(k, d, slot, list, listed, sum, tension);
#else
            pairForcesScalar(k, d, slot, list, listed, sum, tension);
#endif
            // The clamp holds the pair sum only; surface tension passes beside it.
            const float len2 = sum.dot3(sum);
            if (len2 > k.clampForce * k.clampForce) sum *= k.clampForce / std::sqrt(len2);
            Vec4f& f = d.force[s.sortedOrder[slot]];
            f.x += sum.x + tension.x;
            f.y += sum.y + tension.y;
            f.z += sum.z + tension.z;
        }
    }
}
