#include "system_configuration.h"

#include "os_platform.h"

QString systemConfiguration()
{
    switch (OsPlatform::macVersionCode()) {
    case 1:
        return "Mac OS 9";
    case 2:
        return "Mac OS X 10.0";
    case 3:
        return "Mac OS X 10.1";
    case 4:
        return "Mac OS X 10.2";
    case 5:
        return "Mac OS X 10.3";
    case 6:
        return "Mac OS X 10.4";
    case 7:
        return "Mac OS X 10.5";
    case 8:
        return "Mac OS X 10.6";
    case 9:
        return "Mac OS X 10.7";
    case 10:
        return "Mac OS X 10.8";
    default:
        return "Mac OS (unknown version)";
    }
}
