#include "net/Descriptors.h"

#include <QtGlobal>

#include <algorithm>

#ifdef Q_OS_UNIX
#include <sys/resource.h>
#endif

namespace {

constexpr int unlimited = 1'000'000;

} // namespace

#ifdef Q_OS_UNIX

void Descriptors::raiseLimit()
{
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        descriptors.rlim_cur = descriptors.rlim_max;
        setrlimit(RLIMIT_NOFILE, &descriptors);
    }
}

int Descriptors::limit()
{
    rlimit descriptors{};
    const bool known = getrlimit(RLIMIT_NOFILE, &descriptors) == 0;
    return known ? static_cast<int>(std::min<rlim_t>(descriptors.rlim_cur, unlimited)) : unlimited;
}

#else

void Descriptors::raiseLimit()
{
}

int Descriptors::limit()
{
    return unlimited;
}

#endif
