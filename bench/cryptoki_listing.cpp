// Times the dashboard's listing call, C_GetPublicTokenData, on the token the environment
// points the module at. Prints figures; never fails on time.
//   cryptoki_listing [runs]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "zorvik_cryptoki.h"

namespace {

double msSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    auto t = std::chrono::steady_clock::now();
    const CK_RV init = C_Initialize(nullptr);
    const double initMs = msSince(t);
    if (init != CKR_OK) {
        std::fprintf(stderr, "cryptoki_listing: C_Initialize failed, code 0x%lX\n", init);
        return 1;
    }
    std::vector<double> times;
    int objects = -1;
    for (int i = 0; i < runs; ++i) {
        ZorvikPublicTokenData* data = nullptr;
        t = std::chrono::steady_clock::now();
        const CK_RV rv = C_GetPublicTokenData(0, &data);
        times.push_back(msSince(t));
        if (rv != CKR_OK || !data) {
            std::fprintf(stderr, "cryptoki_listing: C_GetPublicTokenData failed, code 0x%lX\n", rv);
            C_Finalize(nullptr);
            return 1;
        }
        objects = data->count;
    }
    C_Finalize(nullptr);
    std::sort(times.begin(), times.end());
    std::printf("C_Initialize: %.1f ms\n", initMs);
    std::printf("C_GetPublicTokenData: %d objects, median %.1f ms, min %.1f ms, max %.1f ms (%d runs)\n", objects,
                times[times.size() / 2], times.front(), times.back(), runs);
    return 0;
}
