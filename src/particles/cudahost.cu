// CUDA device check, selection and the start-up self test. The test kernel multiplies each
// element by four; the host checks the exact result, which proves that the device runs our
// code and that memory goes there and back.
#include "particles/cudahost.h"

#include <cuda_runtime.h>

#include <cstdio>
#include <vector>

namespace {

void reportError(cudaError_t code, const char* call, const char* file, int line)
{
    std::fprintf(stderr, "CUDA error at %s:%d code=%d(%s) \"%s\" \n", file, line, int(code),
                 cudaGetErrorName(code), call);
}

// Rates a device by cores times clock, as the toolkit samples do (roughly).
double deviceRating(const cudaDeviceProp& p, int device)
{
    int clockKHz = 0;
    cudaDeviceGetAttribute(&clockKHz, cudaDevAttrClockRate, device);
    const int coresPerSm = p.major >= 8 ? 128 : 64;
    return double(p.multiProcessorCount) * coresPerSm * double(clockKHz > 0 ? clockKHz : 1);
}

} // namespace

__global__ void moveLeftTest_device(float* positions, int count)
{
    const int i = blockIdx.x * blockDim.x + threadIdx.x;
    if (i < count) positions[i] *= 4.0f;
}

bool cudaCompiledIn() { return true; }

int cudaCheckDevice(int requested)
{
    int count = 0;
    if (cudaGetDeviceCount(&count) != cudaSuccess || count <= 0) {
        cudaGetLastError();
        return -1;
    }
    if (requested == -1) {
        std::printf("picking highest performance device...\n");
        int best = 0;
        double bestRating = -1.0;
        for (int d = 0; d < count; ++d) {
            cudaDeviceProp prop;
            if (cudaGetDeviceProperties(&prop, d) != cudaSuccess) continue;
            const double r = deviceRating(prop, d);
            if (r > bestRating) { bestRating = r; best = d; }
        }
        if (cudaSetDevice(best) != cudaSuccess) return -1;
        return best;
    }
    std::printf("setting device to %d\n", requested);
    if (requested < 0 || requested >= count || cudaSetDevice(requested) != cudaSuccess || cudaFree(nullptr) != cudaSuccess)
        return -2;
    return requested;
}

bool cudaSelfTest(int device)
{
    if (cudaSetDevice(device) != cudaSuccess) return false;
    const int n = 10;
    std::vector<float> host(n);
    for (int i = 0; i < n; ++i) host[size_t(i)] = float(i);
    float* dev = nullptr;
    if (cudaMalloc(&dev, n * sizeof(float)) != cudaSuccess) return false;
    bool ok = cudaMemcpy(dev, host.data(), n * sizeof(float), cudaMemcpyHostToDevice) == cudaSuccess;
    if (ok) {
        moveLeftTest_device<<<3, 4>>>(dev, n);
        ok = cudaGetLastError() == cudaSuccess &&
             cudaMemcpy(host.data(), dev, n * sizeof(float), cudaMemcpyDeviceToHost) == cudaSuccess;
    }
    for (int i = 0; ok && i < n; ++i) ok = host[size_t(i)] == 4.0f * float(i);
    std::printf(ok ? "test passed!\n" : "test failed\n");
    cudaFree(dev);
    return ok;
}

bool cudaSelectDevice(int device)
{
    const cudaError_t code = cudaSetDevice(device);
    if (code == cudaSuccess) return true;
    reportError(code, "cudaSetDevice(qorvaCudaDevId)", __FILE__, __LINE__);
    return false;
}

// The granular device solve isn't there yet: every substep falls back to the CPU solve,
// and no system holds device arrays.
bool cudaGranularSolve(GranularParticleSystem&) { return false; }
void cudaReleaseGranularState(void*) {}
