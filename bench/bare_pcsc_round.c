/* One presence polling round done with plain PC/SC calls, for comparison with the
 * dashboard's: new context, reader listing into a 1024-byte buffer, one status query per
 * reader (at most ten) until a key is found.
 *   bare_pcsc_round ROUNDS [INTERVAL_MS]   prints "rounds=N wall_us=W cpu_us=C present=P"
 * Rounds follow one another at once, or start INTERVAL_MS apart (500: the dashboard's clock). */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <winscard.h>

static SCARDCONTEXT context;
static int haveContext;

static int round_once(void)
{
    static char names[1024];
    DWORD len = sizeof names;
    int present = 0;
    if (haveContext && SCardIsValidContext(context) == SCARD_S_SUCCESS)
        SCardReleaseContext(context);
    haveContext = SCardEstablishContext(SCARD_SCOPE_USER, NULL, NULL, &context) == SCARD_S_SUCCESS;
    if (!haveContext)
        return -1;
    if (SCardListReaders(context, NULL, names, &len) != SCARD_S_SUCCESS || len == 0)
        return -1;
    const char* p = names;
    for (int n = 0; n < 10 && p < names + len && *p; ++n, p += strlen(p) + 1) {
        if (present)
            continue;
        SCARD_READERSTATE st;
        memset(&st, 0, sizeof st);
        st.szReader = p;
        st.dwCurrentState = SCARD_STATE_UNAWARE;
        st.dwEventState = SCARD_STATE_UNKNOWN;
        if (SCardGetStatusChange(context, 1000, &st, 1) == SCARD_S_SUCCESS && (st.dwEventState & SCARD_STATE_PRESENT))
            present = 1;
    }
    return present;
}

static double now_us(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1e6 + ts.tv_nsec / 1e3;
}

static double cpu_us(void)
{
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1e6 + ru.ru_utime.tv_usec + ru.ru_stime.tv_usec;
}

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? atoi(argv[1]) : 400;
    const long interval_ms = argc > 2 ? atol(argv[2]) : 0;
    int present = 0;
    for (int i = 0; i < 5 && rounds > 0 && interval_ms == 0; ++i)
        round_once();
    const double w0 = now_us(), c0 = cpu_us();
    struct timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 0; i < rounds; ++i) {
        if (interval_ms > 0) {
            next.tv_nsec += interval_ms % 1000 * 1000000L;
            next.tv_sec += interval_ms / 1000 + next.tv_nsec / 1000000000L;
            next.tv_nsec %= 1000000000L;
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, NULL);
        }
        present = round_once();
    }
    const double w1 = now_us(), c1 = cpu_us();
    printf("rounds=%d wall_us=%.0f cpu_us=%.0f present=%d\n", rounds, w1 - w0, c1 - c0, present);
    if (haveContext)
        SCardReleaseContext(context);
    return present < 0 ? 1 : 0;
}
