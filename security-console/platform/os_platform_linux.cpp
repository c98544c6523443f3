// The answers of the OS seam that only Linux gives.
#include "os_platform.h"

QString OsPlatform::reportPlatform()
{
    return "Linux";
}
