// What the management library of a machine with three GPUs would tell: the second one is of a kind that tells nothing.

namespace {

bool isConnected = false;

struct Utilization {
    unsigned gpu;
    unsigned memory;
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
}
