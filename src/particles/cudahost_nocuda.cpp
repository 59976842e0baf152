// The CUDA host interface in a build without a CUDA compiler: there is never a device.
#include "particles/cudahost.h"

bool cudaCompiledIn() { return false; }
int cudaCheckDevice(int) { return -1; }
bool cudaSelfTest(int) { return false; }
bool cudaSelectDevice(int) { return false; }
bool cudaGranularSolve(GranularParticleSystem&) { return false; }
void cudaReleaseGranularState(void*) {}
