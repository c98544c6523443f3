// The answers of the OS seam that only macOS gives.
#include "os_platform.h"

QString OsPlatform::reportPlatform()
{
    return "Mac OS X";
}
