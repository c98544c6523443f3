/*
 * The bench's "Zorvik Virtual Card Reader": a pcsc-lite reader driver (IFD handler) that plays
 * the phone side of the smartphone token.
 *
 * - The virtual card is a vantrel-sim connected to the reader's TCP port on 127.0.0.1, with the
 *   same framing the vpcd driver uses (2-byte big-endian length, then the bytes; a 1-byte
 *   message to the card is a control code: 0 power off, 1 power on, 2 reset, 4 get ATR). A
 *   card connected there is a phone connected.
 * - The vendor control codes (SCardControl) answer discovery, the Diffie-Hellman pairing, the
 *   proxy channel and eject; the vendor attributes 0x75B01 and 0x75B02 (SCardGetAttrib) answer
 *   the phone's model and name.
 * - A control socket (a Unix socket) lets the bench play the phone: see phone_command().
 *
 * reader.conf:  DEVICENAME /dev/null:<tcp port>:<control socket path> (pcscd wants an existing
 *                file before the first colon)
 * One loaded copy serves several readers; each reader is one slot.
 */
#define _GNU_SOURCE
#include <ifdhandler.h>
#include <reader.h>

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#define MAX_READERS 16
#define MAX_CALLS 64
#define CARD_TIMEOUT_MS 10000
#define BLIP_TIMEOUT_MS 10000

enum { CARD_POWER_OFF = 0, CARD_POWER_ON = 1, CARD_RESET = 2, CARD_GET_ATR = 4 };

enum {
    CTL_EJECT = 0x42000006,
    CTL_STOP_PAIRING = 0x42000902,
    CTL_IS_PAIRING_ENABLED = 0x42000903,
    CTL_ENABLE_DISCOVERY = 0x42000905,
    CTL_DISABLE_DISCOVERY = 0x42000906,
    CTL_IS_DISCOVERY_ENABLED = 0x42000907,
    CTL_APPROVE_DH_PAIRING = 0x42000909,
    CTL_DH_PAIRING_INFO = 0x42000910,
    CTL_REQUEST_PROXY_CHANNEL = 0x42000911,
    CTL_START_DH_PAIRING = 0x42000918
};

enum { ATTR_DEVICE_MODEL = 0x75B01, ATTR_DEVICE_NAME = 0x75B02 };

/* Pairing states as the pairing information reports them. */
enum { PAIRING_NONE = 0, PAIRING_IN_PROGRESS = 1, PAIRING_READY = 2 };

/* The "fail once" blip: the card looks absent to exactly one presence poll of pcscd. */
enum { BLIP_NONE = 0, BLIP_PENDING = 1, BLIP_REPORTED = 2 };

struct reader
{
    int used;
    pthread_mutex_t lock;
    pthread_cond_t cond;
    pthread_t thread;
    int thread_running;
    int wake[2];
    int stopping;

    int card_listen;
    int card_fd;
    unsigned card_gen;
    unsigned char atr[33];
    DWORD atr_len;
    char control_path[108];
    int control_listen;

    /* Presence events for pcscd's polling thread. */
    unsigned events;
    unsigned seen_events;
    int stop_polling;
    int ejected;
    int blip;

    /* The phone. */
    char name[256];
    char model[256];
    int discovery;
    uint32_t discovery_value;
    int pairing_state;
    uint32_t pairing_value;
    double pairing_started;
    int phone_asks;
    uint32_t phone_code;
    char phone_data[1024];
    double phone_pending;
    double phone_ready_at;
    int phone_refuses;
    int paired;
    uint32_t approved_code;
    unsigned char ticket[256];
    size_t ticket_len;
    char calls[MAX_CALLS][24];
    int call_count;
};

static struct reader readers[MAX_READERS];
static pthread_mutex_t table_lock = PTHREAD_MUTEX_INITIALIZER;

static void note(const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    fputs("phone-reader: ", stderr);
    vfprintf(stderr, format, ap);
    fputc('\n', stderr);
    fflush(stderr);
    va_end(ap);
}

static double now_seconds(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + ts.tv_nsec / 1e9;
}

static struct reader* reader_of(DWORD lun)
{
    const DWORD index = (lun >> 16) & 0xFFFF;
    if (index >= MAX_READERS || (lun & 0xFFFF) != 0)
        return NULL;
    return &readers[index];
}

static void wake_thread(struct reader* r)
{
    const char c = 1;
    if (r->wake[1] >= 0 && write(r->wake[1], &c, 1) < 0 && errno != EAGAIN)
        note("cannot wake the reader thread: %s", strerror(errno));
}

/* Called with the lock held: the card's presence may have changed. */
static void presence_changed(struct reader* r)
{
    r->events++;
    pthread_cond_broadcast(&r->cond);
}

static void drop_card(struct reader* r)
{
    if (r->card_fd >= 0) {
        close(r->card_fd);
        r->card_fd = -1;
        r->card_gen++;
        r->atr_len = 0;
        note("the card left %s", r->control_path);
        presence_changed(r);
        wake_thread(r);
    }
}

static int card_present(const struct reader* r)
{
    return r->card_fd >= 0 && !r->ejected && r->blip != BLIP_PENDING;
}

/* --- the card link ------------------------------------------------------------------------ */

static int io_wait(int fd, short events)
{
    struct pollfd p = {fd, events, 0};
    int rc;
    do
        rc = poll(&p, 1, CARD_TIMEOUT_MS);
    while (rc < 0 && errno == EINTR);
    return rc > 0 && (p.revents & events);
}

static int read_all(int fd, unsigned char* p, size_t n)
{
    while (n > 0) {
        if (!io_wait(fd, POLLIN))
            return 0;
        const ssize_t got = recv(fd, p, n, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return 0;
        p += got;
        n -= (size_t)got;
    }
    return 1;
}

static int write_all(int fd, const unsigned char* p, size_t n)
{
    while (n > 0) {
        const ssize_t put = send(fd, p, n, MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return 0;
        p += put;
        n -= (size_t)put;
    }
    return 1;
}

/* One message to the card and, when `answer` is set, its answer. Called with the lock held. */
static int card_exchange(struct reader* r, const unsigned char* out, size_t out_len, unsigned char* answer,
                         size_t* answer_len)
{
    unsigned char frame[2 + 65536];
    if (r->card_fd < 0 || out_len > 0xFFFF)
        return 0;
    frame[0] = (unsigned char)(out_len >> 8);
    frame[1] = (unsigned char)(out_len & 0xFF);
    memcpy(frame + 2, out, out_len);
    if (!write_all(r->card_fd, frame, out_len + 2))
        goto gone;
    if (!answer)
        return 1;
    unsigned char header[2];
    if (!read_all(r->card_fd, header, 2))
        goto gone;
    const size_t len = ((size_t)header[0] << 8) | header[1];
    unsigned char buffer[65536];
    if (!read_all(r->card_fd, buffer, len))
        goto gone;
    if (len > *answer_len)
        return 0;
    memcpy(answer, buffer, len);
    *answer_len = len;
    return 1;
gone:
    drop_card(r);
    return 0;
}

static int card_control(struct reader* r, unsigned char code)
{
    return card_exchange(r, &code, 1, NULL, NULL);
}

/* --- the phone's state -------------------------------------------------------------------- */

static void record_call(struct reader* r, DWORD code, const unsigned char* in, DWORD in_len)
{
    char* slot = r->calls[r->call_count % MAX_CALLS];
    if (in_len >= 4) {
        uint32_t value;
        memcpy(&value, in, 4);
        snprintf(slot, sizeof r->calls[0], "%08lX:%u", (unsigned long)code, value);
    } else {
        snprintf(slot, sizeof r->calls[0], "%08lX", (unsigned long)code);
    }
    r->call_count++;
}

/* The pairing moves on with time: the phone's answer arrives once its pending time is over,
 * and a pairing nobody answers ends when the program's time limit has passed. */
static void update_pairing(struct reader* r)
{
    const double now = now_seconds();
    if (r->pairing_state != PAIRING_IN_PROGRESS)
        return;
    if (r->phone_asks && now >= r->phone_ready_at)
        r->pairing_state = PAIRING_READY;
    else if (r->pairing_value > 0 && now >= r->pairing_started + r->pairing_value)
        r->pairing_state = PAIRING_NONE;
}

static int read_value(const unsigned char* in, DWORD in_len, uint32_t* value)
{
    if (in_len < 4)
        return 0;
    memcpy(value, in, 4);
    return 1;
}

static RESPONSECODE put_flag(int flag, unsigned char* out, DWORD out_len, DWORD* returned)
{
    const uint32_t value = flag ? 1 : 0;
    if (out_len < 4)
        return IFD_ERROR_INSUFFICIENT_BUFFER;
    memcpy(out, &value, 4);
    *returned = 4;
    return IFD_SUCCESS;
}

static RESPONSECODE phone_control(struct reader* r, DWORD code, const unsigned char* in, DWORD in_len,
                                  unsigned char* out, DWORD out_len, DWORD* returned)
{
    uint32_t value = 0;
    update_pairing(r);
    switch (code) {
    case CTL_STOP_PAIRING:
        r->pairing_state = PAIRING_NONE;
        return IFD_SUCCESS;
    case CTL_IS_PAIRING_ENABLED:
        return put_flag(r->discovery || r->pairing_state != PAIRING_NONE, out, out_len, returned);
    case CTL_ENABLE_DISCOVERY:
        if (!read_value(in, in_len, &value))
            return IFD_COMMUNICATION_ERROR;
        r->discovery = 1;
        r->discovery_value = value;
        return IFD_SUCCESS;
    case CTL_DISABLE_DISCOVERY:
        r->discovery = 0;
        return IFD_SUCCESS;
    case CTL_IS_DISCOVERY_ENABLED:
        return put_flag(r->discovery, out, out_len, returned);
    case CTL_START_DH_PAIRING:
        if (!read_value(in, in_len, &value))
            return IFD_COMMUNICATION_ERROR;
        r->pairing_state = PAIRING_IN_PROGRESS;
        r->pairing_value = value;
        r->pairing_started = now_seconds();
        r->phone_ready_at = r->pairing_started + r->phone_pending;
        update_pairing(r);
        return IFD_SUCCESS;
    case CTL_DH_PAIRING_INFO: {
        const size_t data_len = strlen(r->phone_data);
        const size_t need = r->pairing_state == PAIRING_READY ? 5 + data_len : 1;
        if (out_len < need)
            return IFD_ERROR_INSUFFICIENT_BUFFER;
        out[0] = (unsigned char)r->pairing_state;
        if (r->pairing_state == PAIRING_READY) {
            memcpy(out + 1, &r->phone_code, 4);
            memcpy(out + 5, r->phone_data, data_len);
        }
        *returned = (DWORD)need;
        return IFD_SUCCESS;
    }
    case CTL_APPROVE_DH_PAIRING:
        if (!read_value(in, in_len, &value) || r->pairing_state != PAIRING_READY)
            return IFD_COMMUNICATION_ERROR;
        r->pairing_state = PAIRING_NONE;
        if (r->phone_refuses || value != r->phone_code) {
            note("pairing refused (code %u)", value);
            return IFD_COMMUNICATION_ERROR;
        }
        r->paired = 1;
        r->approved_code = value;
        r->phone_asks = 0;
        return IFD_SUCCESS;
    case CTL_REQUEST_PROXY_CHANNEL:
        if (!read_value(in, in_len, &value))
            return IFD_COMMUNICATION_ERROR;
        if (out_len < r->ticket_len)
            return IFD_ERROR_INSUFFICIENT_BUFFER;
        memcpy(out, r->ticket, r->ticket_len);
        *returned = (DWORD)r->ticket_len;
        return IFD_SUCCESS;
    case CTL_EJECT:
        if (r->card_fd < 0 || r->ejected)
            return IFD_COMMUNICATION_ERROR;
        r->ejected = 1;
        presence_changed(r);
        return IFD_SUCCESS;
    default:
        return IFD_ERROR_NOT_SUPPORTED;
    }
}

/* --- the control socket: the bench plays the phone -------------------------------------------
 *
 * One request line, one answer line ("ok ..." or "error ..."). Texts travel in hexadecimal.
 *   state                          ok {json}: the phone and the reader as the driver sees them
 *   names <hex name> <hex model>   the device-name attributes
 *   pair <code> <pending ms> <hex data>   the phone asks to pair: a started pairing reaches
 *                                  state 2 with this code and data once the time is over
 *   accept | refuse                how the phone answers the approval; refuse also ends a
 *                                  pairing under way
 *   ticket <hex bytes>             what the proxy-channel request returns
 *   blip                           the next command on a connected handle fails with
 *                                  SCARD_W_REMOVED_CARD: the card looks gone to one presence
 *                                  poll of pcscd; answers once pcscd has seen it back
 *   insert                         an ejected card comes back
 */

static int from_hex(const char* hex, unsigned char* out, size_t max, size_t* len)
{
    size_t n = 0;
    if (strcmp(hex, "-") == 0) {
        *len = 0;
        return 1;
    }
    while (hex[0] && hex[1]) {
        unsigned int byte;
        if (n >= max || sscanf(hex, "%2x", &byte) != 1)
            return 0;
        out[n++] = (unsigned char)byte;
        hex += 2;
    }
    *len = n;
    return hex[0] == '\0';
}

static int hex_text(const char* hex, char* out, size_t size)
{
    size_t len = 0;
    if (!from_hex(hex, (unsigned char*)out, size - 1, &len))
        return 0;
    out[len] = '\0';
    return 1;
}

static void json_string(char* out, size_t size, const char* text)
{
    size_t n = strlen(out);
    n += (size_t)snprintf(out + n, size > n ? size - n : 0, "\"");
    for (const unsigned char* p = (const unsigned char*)text; *p && n + 8 < size; ++p) {
        if (*p == '"' || *p == '\\')
            n += (size_t)snprintf(out + n, size - n, "\\%c", *p);
        else if (*p < 0x20)
            n += (size_t)snprintf(out + n, size - n, "\\u%04x", *p);
        else
            out[n++] = (char)*p, out[n] = '\0';
    }
    snprintf(out + n, size > n ? size - n : 0, "\"");
}

static void state_json(struct reader* r, char* out, size_t size)
{
    update_pairing(r);
    snprintf(out, size,
             "ok {\"present\":%s,\"connected\":%s,\"ejected\":%s,\"discovery\":%s,\"discovery_value\":%u,"
             "\"pairing_state\":%d,\"pairing_value\":%u,\"paired\":%s,\"approved_code\":%u,\"name\":",
             card_present(r) ? "true" : "false", r->card_fd >= 0 ? "true" : "false", r->ejected ? "true" : "false",
             r->discovery ? "true" : "false", r->discovery_value, r->pairing_state, r->pairing_value,
             r->paired ? "true" : "false", r->approved_code);
    json_string(out, size, r->name);
    strncat(out, ",\"model\":", size - strlen(out) - 1);
    json_string(out, size, r->model);
    strncat(out, ",\"ticket\":\"", size - strlen(out) - 1);
    for (size_t i = 0; i < r->ticket_len; ++i) {
        char b[3];
        snprintf(b, sizeof b, "%02x", r->ticket[i]);
        strncat(out, b, size - strlen(out) - 1);
    }
    strncat(out, "\",\"calls\":[", size - strlen(out) - 1);
    const int first = r->call_count > MAX_CALLS ? r->call_count - MAX_CALLS : 0;
    for (int i = first; i < r->call_count; ++i) {
        if (i > first)
            strncat(out, ",", size - strlen(out) - 1);
        json_string(out, size, r->calls[i % MAX_CALLS]);
    }
    strncat(out, "]}", size - strlen(out) - 1);
}

/* Called with the lock held. */
static void phone_command(struct reader* r, char* line, char* answer, size_t size)
{
    char* words[5] = {0};
    int n = 0;
    for (char *save = NULL, *w = strtok_r(line, " \r\n", &save); w && n < 5; w = strtok_r(NULL, " \r\n", &save))
        words[n++] = w;
    const char* cmd = n > 0 ? words[0] : "";

    if (strcmp(cmd, "state") == 0) {
        state_json(r, answer, size);
    } else if (strcmp(cmd, "names") == 0 && n == 3) {
        if (!hex_text(words[1], r->name, sizeof r->name) || !hex_text(words[2], r->model, sizeof r->model))
            snprintf(answer, size, "error bad names");
        else
            snprintf(answer, size, "ok");
    } else if (strcmp(cmd, "pair") == 0 && n == 4) {
        char* end = NULL;
        const unsigned long code = strtoul(words[1], &end, 10);
        const long pending_ms = strtol(words[2], NULL, 10);
        if (*end || pending_ms < 0 || !hex_text(words[3], r->phone_data, sizeof r->phone_data)) {
            snprintf(answer, size, "error bad pairing request");
            return;
        }
        update_pairing(r);
        r->phone_asks = 1;
        r->phone_code = (uint32_t)code;
        r->phone_pending = pending_ms / 1000.0;
        r->phone_ready_at = now_seconds() + r->phone_pending;
        r->phone_refuses = 0;
        update_pairing(r);
        snprintf(answer, size, "ok");
    } else if (strcmp(cmd, "accept") == 0) {
        r->phone_refuses = 0;
        snprintf(answer, size, "ok");
    } else if (strcmp(cmd, "refuse") == 0) {
        r->phone_refuses = 1;
        r->phone_asks = 0;
        r->pairing_state = PAIRING_NONE;
        snprintf(answer, size, "ok");
    } else if (strcmp(cmd, "ticket") == 0 && n == 2) {
        if (!from_hex(words[1], r->ticket, sizeof r->ticket, &r->ticket_len))
            snprintf(answer, size, "error bad ticket");
        else
            snprintf(answer, size, "ok");
    } else if (strcmp(cmd, "insert") == 0) {
        if (r->card_fd < 0) {
            snprintf(answer, size, "error no card is connected");
        } else {
            if (r->ejected) {
                r->ejected = 0;
                presence_changed(r);
            }
            snprintf(answer, size, "ok");
        }
    } else if (strcmp(cmd, "blip") == 0) {
        if (!card_present(r)) {
            snprintf(answer, size, "error no card is present");
            return;
        }
        r->blip = BLIP_PENDING;
        presence_changed(r);
        struct timespec deadline;
        clock_gettime(CLOCK_REALTIME, &deadline);
        deadline.tv_sec += BLIP_TIMEOUT_MS / 1000;
        while (r->blip != BLIP_NONE && !r->stopping)
            if (pthread_cond_timedwait(&r->cond, &r->lock, &deadline) == ETIMEDOUT)
                break;
        if (r->blip != BLIP_NONE) {
            r->blip = BLIP_NONE;
            snprintf(answer, size, "error pcscd did not poll the reader");
        } else {
            snprintf(answer, size, "ok");
        }
    } else {
        snprintf(answer, size, "error unknown command: %s", cmd);
    }
}

static void serve_control(struct reader* r, int client)
{
    char line[4096];
    size_t len = 0;
    while (len + 1 < sizeof line) {
        if (!io_wait(client, POLLIN))
            break;
        const ssize_t got = recv(client, line + len, sizeof line - 1 - len, 0);
        if (got <= 0)
            break;
        len += (size_t)got;
        if (memchr(line, '\n', len))
            break;
    }
    line[len] = '\0';
    static char answer[8192];
    pthread_mutex_lock(&r->lock);
    phone_command(r, line, answer, sizeof answer - 1);
    pthread_mutex_unlock(&r->lock);
    strcat(answer, "\n");
    write_all(client, (const unsigned char*)answer, strlen(answer));
}

/* The reader's thread: takes the card when it connects, notices when it goes, serves the
 * control socket. Card I/O itself runs in pcscd's threads under the reader's lock. */
static void* reader_thread(void* arg)
{
    struct reader* r = arg;
    for (;;) {
        struct pollfd p[4];
        int n = 0;
        pthread_mutex_lock(&r->lock);
        if (r->stopping) {
            pthread_mutex_unlock(&r->lock);
            break;
        }
        const int card_fd = r->card_fd;
        const unsigned gen = r->card_gen;
        pthread_mutex_unlock(&r->lock);

        p[n++] = (struct pollfd){r->wake[0], POLLIN, 0};
        p[n++] = (struct pollfd){r->control_listen, POLLIN, 0};
        if (card_fd >= 0)
            p[n++] = (struct pollfd){card_fd, POLLRDHUP, 0};
        else
            p[n++] = (struct pollfd){r->card_listen, POLLIN, 0};
        if (poll(p, (nfds_t)n, -1) < 0) {
            if (errno == EINTR)
                continue;
            note("poll: %s", strerror(errno));
            break;
        }
        if (p[0].revents & POLLIN) {
            char buf[64];
            while (read(r->wake[0], buf, sizeof buf) > 0) {
            }
        }
        if (p[1].revents & POLLIN) {
            const int client = accept4(r->control_listen, NULL, NULL, SOCK_CLOEXEC);
            if (client >= 0) {
                serve_control(r, client);
                close(client);
            }
        }
        if (card_fd >= 0 && (p[2].revents & (POLLRDHUP | POLLHUP | POLLERR))) {
            pthread_mutex_lock(&r->lock);
            if (r->card_gen == gen)
                drop_card(r);
            pthread_mutex_unlock(&r->lock);
        } else if (card_fd < 0 && (p[2].revents & POLLIN)) {
            const int fd = accept4(r->card_listen, NULL, NULL, SOCK_CLOEXEC);
            if (fd >= 0) {
                const int one = 1;
                setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                pthread_mutex_lock(&r->lock);
                r->card_fd = fd;
                r->card_gen++;
                r->ejected = 0;
                r->blip = BLIP_NONE;
                note("a card connected to %s", r->control_path);
                presence_changed(r);
                pthread_mutex_unlock(&r->lock);
            }
        }
    }
    return NULL;
}

/* --- the IFD handler ---------------------------------------------------------------------- */

static int listen_tcp(int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    struct sockaddr_in a;
    memset(&a, 0, sizeof a);
    a.sin_family = AF_INET;
    a.sin_port = htons((uint16_t)port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd, (struct sockaddr*)&a, sizeof a) < 0 || listen(fd, 1) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

static int listen_unix(const char* path)
{
    struct sockaddr_un a;
    if (strlen(path) >= sizeof a.sun_path)
        return -1;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    memset(&a, 0, sizeof a);
    a.sun_family = AF_UNIX;
    strcpy(a.sun_path, path);
    unlink(path);
    if (bind(fd, (struct sockaddr*)&a, sizeof a) < 0 || listen(fd, 4) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

static void close_reader(struct reader* r)
{
    pthread_mutex_lock(&r->lock);
    r->stopping = 1;
    r->stop_polling = 1;
    pthread_cond_broadcast(&r->cond);
    wake_thread(r);
    pthread_mutex_unlock(&r->lock);
    if (r->thread_running)
        pthread_join(r->thread, NULL);
    r->thread_running = 0;
    if (r->card_fd >= 0)
        close(r->card_fd);
    if (r->card_listen >= 0)
        close(r->card_listen);
    if (r->control_listen >= 0) {
        close(r->control_listen);
        unlink(r->control_path);
    }
    for (int i = 0; i < 2; ++i)
        if (r->wake[i] >= 0)
            close(r->wake[i]);
    pthread_cond_destroy(&r->cond);
    pthread_mutex_destroy(&r->lock);
    r->used = 0;
}

RESPONSECODE IFDHCreateChannelByName(DWORD Lun, LPSTR DeviceName)
{
    struct reader* r = reader_of(Lun);
    char path[sizeof r->control_path] = "";
    const char* p = DeviceName ? strchr(DeviceName, ':') : NULL;
    const char* c = p ? strchr(p + 1, ':') : NULL;
    if (!r || !p || !c)
        return IFD_COMMUNICATION_ERROR;
    const int port = atoi(p + 1);
    snprintf(path, sizeof path, "%s", c + 1);

    pthread_mutex_lock(&table_lock);
    if (r->used) {
        pthread_mutex_unlock(&table_lock);
        return IFD_COMMUNICATION_ERROR;
    }
    memset(r, 0, sizeof *r);
    r->used = 1;
    r->card_fd = r->card_listen = r->control_listen = r->wake[0] = r->wake[1] = -1;
    pthread_mutex_init(&r->lock, NULL);
    pthread_condattr_t ca;
    pthread_condattr_init(&ca);
    pthread_cond_init(&r->cond, &ca);
    pthread_condattr_destroy(&ca);
    snprintf(r->control_path, sizeof r->control_path, "%s", path);
    /* Bytes whose base64 text has every character the URI form replaces. */
    static const unsigned char default_ticket[] = {0xfb, 0xff, 0xbf, 0x3e, 0x5a, 0x01, 0x7f, 0xfe};
    memcpy(r->ticket, default_ticket, sizeof default_ticket);
    r->ticket_len = sizeof default_ticket;
    pthread_mutex_unlock(&table_lock);

    r->card_listen = listen_tcp(port);
    r->control_listen = listen_unix(path);
    if (r->card_listen < 0 || r->control_listen < 0 || pipe2(r->wake, O_CLOEXEC | O_NONBLOCK) < 0) {
        note("cannot open the reader (port %d, control %s): %s", port, path, strerror(errno));
        close_reader(r);
        return IFD_COMMUNICATION_ERROR;
    }
    if (pthread_create(&r->thread, NULL, reader_thread, r) != 0) {
        close_reader(r);
        return IFD_COMMUNICATION_ERROR;
    }
    r->thread_running = 1;
    note("reader on port %d, control %s", port, path);
    return IFD_SUCCESS;
}

RESPONSECODE IFDHCreateChannel(DWORD Lun, DWORD Channel)
{
    (void)Lun;
    (void)Channel;
    return IFD_COMMUNICATION_ERROR; /* a DEVICENAME is required */
}

RESPONSECODE IFDHCloseChannel(DWORD Lun)
{
    struct reader* r = reader_of(Lun);
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    close_reader(r);
    return IFD_SUCCESS;
}

/* pcscd's polling thread waits here for the card to come or go. */
static RESPONSECODE wait_card_event(DWORD Lun, int timeout_ms)
{
    struct reader* r = reader_of(Lun);
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    struct timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += timeout_ms / 1000;
    deadline.tv_nsec += (long)(timeout_ms % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec++;
        deadline.tv_nsec -= 1000000000L;
    }
    pthread_mutex_lock(&r->lock);
    while (r->events == r->seen_events && !r->stop_polling)
        if (pthread_cond_timedwait(&r->cond, &r->lock, &deadline) == ETIMEDOUT)
            break;
    pthread_mutex_unlock(&r->lock);
    return IFD_SUCCESS;
}

static RESPONSECODE stop_card_events(DWORD Lun)
{
    struct reader* r = reader_of(Lun);
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    pthread_mutex_lock(&r->lock);
    r->stop_polling = 1;
    pthread_cond_broadcast(&r->cond);
    pthread_mutex_unlock(&r->lock);
    return IFD_SUCCESS;
}

static RESPONSECODE put_bytes(const void* data, DWORD len, PDWORD Length, PUCHAR Value)
{
    if (*Length < len)
        return IFD_ERROR_INSUFFICIENT_BUFFER;
    memcpy(Value, data, len);
    *Length = len;
    return IFD_SUCCESS;
}

RESPONSECODE IFDHGetCapabilities(DWORD Lun, DWORD Tag, PDWORD Length, PUCHAR Value)
{
    struct reader* r = reader_of(Lun);
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    RESPONSECODE rc = IFD_ERROR_TAG;
    pthread_mutex_lock(&r->lock);
    switch (Tag) {
    case TAG_IFD_ATR:
    case SCARD_ATTR_ATR_STRING:
        rc = put_bytes(r->atr, r->atr_len, Length, Value);
        break;
    case TAG_IFD_SIMULTANEOUS_ACCESS: {
        const unsigned char n = MAX_READERS;
        rc = put_bytes(&n, 1, Length, Value);
        break;
    }
    case TAG_IFD_THREAD_SAFE:
    case TAG_IFD_SLOTS_NUMBER: {
        const unsigned char one = 1;
        rc = put_bytes(&one, 1, Length, Value);
        break;
    }
    case TAG_IFD_SLOT_THREAD_SAFE: {
        const unsigned char zero = 0;
        rc = put_bytes(&zero, 1, Length, Value);
        break;
    }
    case TAG_IFD_POLLING_THREAD_WITH_TIMEOUT: {
        RESPONSECODE (*fn)(DWORD, int) = wait_card_event;
        rc = put_bytes(&fn, sizeof fn, Length, Value);
        break;
    }
    case TAG_IFD_POLLING_THREAD_KILLABLE: {
        const unsigned char no = 0;
        rc = put_bytes(&no, 1, Length, Value);
        break;
    }
    case TAG_IFD_STOP_POLLING_THREAD: {
        RESPONSECODE (*fn)(DWORD) = stop_card_events;
        rc = put_bytes(&fn, sizeof fn, Length, Value);
        break;
    }
    case ATTR_DEVICE_NAME:
        record_call(r, Tag, NULL, 0);
        rc = put_bytes(r->name, (DWORD)strlen(r->name), Length, Value);
        break;
    case ATTR_DEVICE_MODEL:
        record_call(r, Tag, NULL, 0);
        rc = put_bytes(r->model, (DWORD)strlen(r->model), Length, Value);
        break;
    default:
        break;
    }
    pthread_mutex_unlock(&r->lock);
    return rc;
}

RESPONSECODE IFDHSetCapabilities(DWORD Lun, DWORD Tag, DWORD Length, PUCHAR Value)
{
    (void)Lun;
    (void)Tag;
    (void)Length;
    (void)Value;
    return IFD_NOT_SUPPORTED;
}

RESPONSECODE IFDHSetProtocolParameters(DWORD Lun, DWORD Protocol, UCHAR Flags, UCHAR PTS1, UCHAR PTS2, UCHAR PTS3)
{
    (void)Flags;
    (void)PTS1;
    (void)PTS2;
    (void)PTS3;
    struct reader* r = reader_of(Lun);
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    return Protocol == SCARD_PROTOCOL_T0 || Protocol == SCARD_PROTOCOL_T1 ? IFD_SUCCESS : IFD_PROTOCOL_NOT_SUPPORTED;
}

RESPONSECODE IFDHPowerICC(DWORD Lun, DWORD Action, PUCHAR Atr, PDWORD AtrLength)
{
    struct reader* r = reader_of(Lun);
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    RESPONSECODE rc = IFD_SUCCESS;
    pthread_mutex_lock(&r->lock);
    if (Action == IFD_POWER_DOWN) {
        r->atr_len = 0;
        if (r->card_fd >= 0)
            card_control(r, CARD_POWER_OFF);
        *AtrLength = 0;
    } else if (Action == IFD_POWER_UP || Action == IFD_RESET) {
        unsigned char atr[64];
        size_t len = sizeof atr;
        const unsigned char get_atr = CARD_GET_ATR;
        if (!card_present(r) || !card_control(r, Action == IFD_RESET ? CARD_RESET : CARD_POWER_ON) ||
            !card_exchange(r, &get_atr, 1, atr, &len) || len > sizeof r->atr || len > *AtrLength) {
            *AtrLength = 0;
            rc = IFD_ERROR_POWER_ACTION;
        } else {
            memcpy(r->atr, atr, len);
            r->atr_len = (DWORD)len;
            memcpy(Atr, atr, len);
            *AtrLength = (DWORD)len;
        }
    } else {
        rc = IFD_NOT_SUPPORTED;
    }
    pthread_mutex_unlock(&r->lock);
    return rc;
}

RESPONSECODE IFDHTransmitToICC(DWORD Lun, SCARD_IO_HEADER SendPci, PUCHAR TxBuffer, DWORD TxLength, PUCHAR RxBuffer,
                               PDWORD RxLength, PSCARD_IO_HEADER RecvPci)
{
    (void)SendPci;
    struct reader* r = reader_of(Lun);
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    RESPONSECODE rc = IFD_SUCCESS;
    pthread_mutex_lock(&r->lock);
    size_t len = *RxLength;
    if (!card_present(r)) {
        rc = IFD_ICC_NOT_PRESENT;
    } else if (TxLength < 2 || !card_exchange(r, TxBuffer, TxLength, RxBuffer, &len)) {
        rc = IFD_COMMUNICATION_ERROR;
    }
    *RxLength = rc == IFD_SUCCESS ? (DWORD)len : 0;
    if (RecvPci)
        RecvPci->Protocol = SendPci.Protocol;
    pthread_mutex_unlock(&r->lock);
    return rc;
}

RESPONSECODE IFDHControl(DWORD Lun, DWORD dwControlCode, PUCHAR TxBuffer, DWORD TxLength, PUCHAR RxBuffer,
                         DWORD RxLength, LPDWORD pdwBytesReturned)
{
    struct reader* r = reader_of(Lun);
    *pdwBytesReturned = 0;
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    pthread_mutex_lock(&r->lock);
    record_call(r, dwControlCode, TxBuffer, TxLength);
    const RESPONSECODE rc = phone_control(r, dwControlCode, TxBuffer, TxLength, RxBuffer, RxLength, pdwBytesReturned);
    if (rc != IFD_SUCCESS)
        *pdwBytesReturned = 0;
    pthread_mutex_unlock(&r->lock);
    return rc;
}

RESPONSECODE IFDHICCPresence(DWORD Lun)
{
    struct reader* r = reader_of(Lun);
    if (!r || !r->used)
        return IFD_NO_SUCH_DEVICE;
    pthread_mutex_lock(&r->lock);
    r->seen_events = r->events;
    RESPONSECODE rc;
    if (r->blip == BLIP_PENDING) {
        /* Seen gone once; the next poll sees it back. */
        r->blip = BLIP_REPORTED;
        presence_changed(r);
        rc = IFD_ICC_NOT_PRESENT;
    } else {
        if (r->blip == BLIP_REPORTED) {
            r->blip = BLIP_NONE;
            pthread_cond_broadcast(&r->cond);
        }
        rc = card_present(r) ? IFD_ICC_PRESENT : IFD_ICC_NOT_PRESENT;
    }
    pthread_mutex_unlock(&r->lock);
    return rc;
}
