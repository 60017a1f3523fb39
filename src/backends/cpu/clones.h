// Hot loops of the CPU backend are compiled twice: for the baseline x86-64
// and for x86-64-v3 (AVX2 and FMA), chosen once at load time. The per-pixel
// functions ask for fused multiply-adds by name (fmaf); without FMA hardware
// each one is a library call, with it a single instruction, and both round
// identically, so the two versions give the same bits.
#pragma once

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
#define VEMO_CPU_CLONES __attribute__((target_clones("arch=x86-64-v3", "default")))
#else
#define VEMO_CPU_CLONES
#endif
