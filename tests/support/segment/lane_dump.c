// lane-dump: receives on a device and writes the frames to a pcap file with nanosecond time stamps.
//
// An independent receiver: it uses the public device interface and nothing else of this project.
#include <errno.h>
#include <inttypes.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include "lane_open.h"

static volatile sig_atomic_t gStop;

static void OnSignal(int number) {
    (void)number;
    gStop = 1;
}

static void PrintUsage(FILE* to) {
    fputs("usage: lane-dump [-n NAME | -d INDEX] -o FILE.pcap [-c COUNT] [-t SECONDS] [-r]\n"
          "  -n NAME     friendly name of the device, for example lane-2\n"
          "  -d INDEX    index of the device, 0 when neither is given\n"
          "  -o FILE     capture file to write\n"
          "  -c COUNT    stop after COUNT frames\n"
          "  -t SECONDS  stop after SECONDS seconds\n"
          "  -r          report every gap in the sequence numbers on standard error\n"
          "Prints \"ready\" when it receives and \"N frames, M missing\" at the end.\n",
          to);
}

static uint64_t MillisecondsNow(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (uint64_t)now.tv_sec * 1000 + (uint64_t)now.tv_nsec / 1000000;
}

typedef struct Dump {
    FILE* file;
    int reportGaps;
    int isCounting; // a number has come
    uint64_t frames;
    uint64_t missing;
    uint32_t nextSequence;
} Dump;

static int WriteFileHeader(FILE* file) {
    const struct {
        uint32_t magic;
        uint16_t major, minor;
        uint32_t zone, accuracy, snapLength, linkType;
    } header = {0xA1B23C4Du, 2, 4, 0, 0, 65535, 1};
    return fwrite(&header, sizeof header, 1, file) == 1;
}

// Counts a number of the receive header and what is missing before it.
static void CountSequence(Dump* dump, const uint8_t* received) {
    uint32_t sequence;
    memcpy(&sequence, received + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, sizeof sequence);
    const uint32_t gap = dump->isCounting ? sequence - dump->nextSequence : 0;
    if (gap != 0 && dump->reportGaps) {
        fprintf(stderr, "lane-dump: %" PRIu32 " missing before number %" PRIu32 "\n", gap, sequence);
    }
    dump->missing += gap;
    dump->nextSequence = sequence + 1;
    dump->isCounting = 1;
}

static int WriteFrame(Dump* dump, const uint8_t* received, uint32_t receivedLength) {
    uint64_t seconds;
    uint32_t nanoseconds;
    memcpy(&seconds, received + QBX_RAW_HEADER_2_SECONDS_OFFSET, sizeof seconds);
    memcpy(&nanoseconds, received + QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, sizeof nanoseconds);
    ++dump->frames;
    const uint32_t length = receivedLength - QBX_RAW_HEADER_2_SIZE;
    const uint32_t header[4] = {(uint32_t)seconds, nanoseconds, length, length};
    return fwrite(header, sizeof header, 1, dump->file) == 1 &&
           fwrite(received + QBX_RAW_HEADER_2_SIZE, length, 1, dump->file) == 1;
}

// Receives until a limit is reached or a signal comes; what is ready by then is still taken.
static int Receive(const LaneDevice* lane, Dump* dump, uint64_t count, uint64_t milliseconds) {
    static uint8_t buffer[QBX_RAW_HEADER_2_SIZE + 65536];
    const uint64_t start = MillisecondsNow();
    for (;;) {
        const int last = gStop != 0 || MillisecondsNow() - start >= milliseconds;
        KESTATUS status = QBX_WaitForRawFrame(lane->handle, last ? 0 : 50);
        if (status != KESTATUS_SUCCESS && status != KESTATUS_TIMEOUT) {
            return LaneFailed(lane, "waiting for a frame", status);
        }
        while (dump->frames < count) {
            uint32_t length = 0;
            QBXRawFrameType type = QBXRawFrameType_Unknown;
            status = QBX_GetReceivedRawFrame(lane->handle, &type, buffer, sizeof buffer, &length);
            if (status == KESTATUS_NO_DATA) {
                break;
            }
            if (status != KESTATUS_SUCCESS) {
                return LaneFailed(lane, "taking a frame", status);
            }
            CountSequence(dump, buffer);
            if (type == QBXRawFrameType_Data && !WriteFrame(dump, buffer, length)) {
                fprintf(stderr, "lane-dump: cannot write the file: %s\n", strerror(errno));
                return 1;
            }
            if (!last && (gStop != 0 || MillisecondsNow() - start >= milliseconds)) {
                break;
            }
        }
        if (last || dump->frames >= count) {
            return 0;
        }
    }
}

typedef struct Options {
    const char* path;
    uint64_t count;
    uint64_t milliseconds;
    int reportGaps;
} Options;

// Ends the program when the command line is wrong or asks for the usage.
static void ReadOptions(int argc, char** argv, LaneDevice* lane, Options* options) {
    int option;
    while ((option = getopt(argc, argv, "n:d:o:c:t:rh")) != -1) {
        switch (option) {
        case 'n':
            lane->name = optarg;
            break;
        case 'd':
            lane->index = (uint32_t)LaneNumber(lane, optarg);
            break;
        case 'o':
            options->path = optarg;
            break;
        case 'c':
            options->count = LaneNumber(lane, optarg);
            break;
        case 't':
            options->milliseconds = LaneNumber(lane, optarg) * 1000;
            break;
        case 'r':
            options->reportGaps = 1;
            break;
        case 'h':
            PrintUsage(stdout);
            exit(0);
        default:
            PrintUsage(stderr);
            exit(1);
        }
    }
    if (options->path == NULL || optind != argc) {
        PrintUsage(stderr);
        exit(1);
    }
}

int main(int argc, char** argv) {
    LaneDevice lane = {"lane-dump", NULL, 0, 0};
    Options options = {.path = NULL, .count = UINT64_MAX, .milliseconds = UINT64_MAX, .reportGaps = 0};
    ReadOptions(argc, argv, &lane, &options);
    const char* path = options.path;
    Dump dump = {.file = NULL,
                 .reportGaps = options.reportGaps,
                 .isCounting = 0,
                 .frames = 0,
                 .missing = 0,
                 .nextSequence = 0};
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = OnSignal;
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    if (LaneOpen(&lane, LANE_RX_HEADER) != 0) {
        return 1;
    }
    dump.file = fopen(path, "wb");
    if (dump.file == NULL || !WriteFileHeader(dump.file)) {
        fprintf(stderr, "lane-dump: cannot write %s: %s\n", path, strerror(errno));
        return 1;
    }
    const KESTATUS status = QBX_EnableRawRx(lane.handle);
    if (status != KESTATUS_SUCCESS) {
        return LaneFailed(&lane, "enabling reception", status);
    }
    puts("ready");
    fflush(stdout);

    int result = Receive(&lane, &dump, options.count, options.milliseconds);
    QBX_CloseDevice(lane.handle);
    if (fclose(dump.file) != 0) {
        fprintf(stderr, "lane-dump: cannot write %s: %s\n", path, strerror(errno));
        result = 1;
    }
    printf("%" PRIu64 " frames, %" PRIu64 " missing\n", dump.frames, dump.missing);
    return result;
}
