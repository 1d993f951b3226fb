// What the management library of a machine with three GPUs would tell: the second one is of a kind that tells nothing.

#include <cstdio>

namespace {

bool isConnected = false;

struct Utilization {
    unsigned gpu;
    unsigned memory;
};

struct Memory {
    unsigned long long total;
    unsigned long long free;
    unsigned long long used;
};

} // namespace

extern "C" {

int nvmlInit_v2()
{
    isConnected = true;
    return 0;
}

int nvmlShutdown()
{
    return 0;
}

int nvmlDeviceGetCount_v2(unsigned* count)
{
    *count = 3;
    return isConnected ? 0 : 1;
}

int nvmlDeviceGetHandleByIndex_v2(unsigned index, void** device)
{
    static unsigned indices[] = {0, 1, 2};
    *device = &indices[index];
    return 0;
}

int nvmlDeviceGetUtilizationRates(void* device, Utilization* utilization)
{
    const unsigned index = *static_cast<unsigned*>(device);
    *utilization = {.gpu = 30 + index, .memory = 99};
    return index == 1 ? 3 : 0;
}

int nvmlDeviceGetName(void* device, char* name, unsigned size)
{
    return *static_cast<unsigned*>(device) == 1 ? 3 : std::snprintf(name, size, "Fake 80GB") < 0;
}

int nvmlDeviceGetMemoryInfo(void* device, Memory* memory)
{
    *memory = {.total = 80ULL << 30, .free = 0, .used = 0};
    return *static_cast<unsigned*>(device) == 1 ? 3 : 0;
}

int nvmlDeviceGetComputeRunningProcesses_v2(void* device, unsigned* count, void*)
{
    const unsigned index = *static_cast<unsigned*>(device);
    *count = index == 0 ? 2 : 0;
    return index == 0 ? 7 : index == 1 ? 3 : 0; // 7: there are more than fit
}

int nvmlSystemGetDriverVersion(char* version, unsigned size)
{
    return std::snprintf(version, size, "550.54") < 0;
}

int nvmlSystemGetCudaDriverVersion_v2(int* version)
{
    *version = 12040;
    return 0;
}
}
