// Set-up shared by every fuzz target, under libFuzzer and under the replay driver.
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The code under test logs what it reads; millions of inputs must not reach the user's
    // logs. No directory can exist below /dev/null, so every log line is dropped.
    setenv("ZORVIK_LOG_DIR", "/dev/null/zorvik", 1);
    setenv("ZORVIK_SYSTEM_LOG_DIR", "/dev/null/zorvik", 1);
    return 0;
}
