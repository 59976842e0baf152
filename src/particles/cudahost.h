// Host side of the CUDA path: device check, selection and the start-up self test. In a
// build without CUDA these answer "no device", so callers need no #ifdefs.
#pragma once

class GranularParticleSystem;

// Whether this build carries the CUDA path at all.
bool cudaCompiledIn();
// Device check at start-up. With `requested` -1 the fastest device is picked; otherwise
// that device is initialised. Answers the device id, -1 when there is no device, and -2
// when the requested device could not be initialised (the caller exits).
int cudaCheckDevice(int requested);
// Runs the self-test kernel on `device`: true if every element came back as 4 * i.
bool cudaSelfTest(int device);
// cudaSetDevice with the error line on standard error; false on failure.
bool cudaSelectDevice(int device);
// Solves one granular substep on the device (the system's solve pass). False when the
// device did not solve it; the caller then runs the CPU solve.
bool cudaGranularSolve(GranularParticleSystem& system);
// Frees the device arrays behind a system's opaque device state; null is fine.
void cudaReleaseGranularState(void* state);
