// The verdict on a CUDA device, for every way a GPU machine can be set up
// wrongly: each present but unusable GPU gets one line saying why, and an
// old driver is never taken for "no GPU".
#include "backends/cuda/device_verdict.h"

#include <gtest/gtest.h>

#include <string>

namespace vemo {
namespace {

// A healthy machine: one Turing-or-newer GPU and a current driver.
CudaProbeFacts healthy() {
  CudaProbeFacts f;
  f.driverVersion = 13000;
  f.runtimeVersion = 13000;
  f.count = CudaCountAnswer::Devices;
  f.deviceCount = 1;
  f.name = "NVIDIA H100";
  f.major = 9;
  f.driverGpus = 1;
  return f;
}

void expectVerdict(const CudaProbeFacts& f, bool present, const std::string& reason) {
  const CudaProbe p = judgeCudaDevice(f);
  EXPECT_EQ(p.present, present) << reason;
  EXPECT_FALSE(p.usable) << reason;
  EXPECT_EQ(p.reason, reason);
}

TEST(CudaDeviceVerdict, EachUnusableSetupIsNamedInOneLine) {
  EXPECT_TRUE(judgeCudaDevice(healthy()).usable);
  EXPECT_TRUE(judgeCudaDevice(healthy()).reason.empty());

  // No driver and no GPU: the runtime answers "insufficient driver" there
  // too; only the driver version 0 tells the two apart.
  CudaProbeFacts f;
  f.runtimeVersion = 13000;
  f.count = CudaCountAnswer::InsufficientDriver;
  expectVerdict(f, false, "no CUDA driver is installed");
  f.driverVersion = 12020;
  expectVerdict(f, true, "the NVIDIA driver supports CUDA 12.2, older than the CUDA 13.0 this build needs: update the driver");
  f.driverVersion = 0;
  f.driverGpus = 2;
  expectVerdict(f, true, "the NVIDIA driver lists 2 GPUs, but its CUDA library (libcuda.so.1) is not installed");
  f.count = CudaCountAnswer::StubDriver;
  f.driverGpus = 0;
  expectVerdict(f, false, "no CUDA driver is installed");

  // The driver sees a GPU that CUDA does not.
  f = healthy();
  f.count = CudaCountAnswer::NoDevice;
  f.deviceCount = 0;
  f.migCapable = true;
  expectVerdict(f, true, "the NVIDIA driver lists 1 GPU, but CUDA sees no device: MIG mode without a compute "
                         "instance (create one with nvidia-smi mig, or turn MIG off)");
  f.visibleDevicesSet = true;
  f.visibleDevices = "MIG-4a2b";
  expectVerdict(f, true, "the NVIDIA driver lists 1 GPU, but CUDA sees no device: CUDA_VISIBLE_DEVICES=\"MIG-4a2b\" "
                         "names MIG devices that do not exist");
  f.migCapable = false;
  f.visibleDevices = "";
  expectVerdict(f, true, "the NVIDIA driver lists 1 GPU, but CUDA sees no device: CUDA_VISIBLE_DEVICES=\"\" hides them");
  f.driverGpus = 0;  // nothing there at all: the ordinary machine without a GPU
  expectVerdict(f, false, "no CUDA device is visible");

  f = healthy();
  f.count = CudaCountAnswer::OtherError;
  f.deviceCount = 0;
  f.countError = "system has unsupported display driver / cuda driver combination";
  expectVerdict(f, true, "the CUDA runtime cannot start: system has unsupported display driver / cuda driver "
                         "combination");

  // The device asked for.
  f = healthy();
  f.deviceCount = 2;
  f.ordinal = 2;
  expectVerdict(f, true, "there is no CUDA device cuda:2: 2 devices are visible (cuda:0 to cuda:1)");
  f.deviceCount = 1;
  f.ordinal = 1;
  expectVerdict(f, true, "there is no CUDA device cuda:1: 1 device is visible (cuda:0)");
  f = healthy();
  f.name = "Tesla P100";
  f.major = 6;
  expectVerdict(f, true, "Tesla P100 (cuda:0) has compute capability 6.0, below the 7.5 this build needs");
  f.major = 7;
  f.minor = 5;
  EXPECT_TRUE(judgeCudaDevice(f).usable);  // exactly the oldest supported
  f = healthy();
  f.contextError = "all CUDA-capable devices are busy or unavailable";
  expectVerdict(f, true, "NVIDIA H100 (cuda:0) cannot be used: all CUDA-capable devices are busy or unavailable");
}

}  // namespace
}  // namespace vemo
