// SPDX-License-Identifier: BSD-3-Clause

// As much of OpenCL C as the models use, for a C compiler.
#ifndef OPENCL_C_H
#define OPENCL_C_H

#include <stdint.h>

#define __global
#define uchar uint8_t
#define ushort uint16_t
#define uint uint32_t
#define ulong uint64_t

#endif
