// lane-check: receives numbered frames (lane_frame.h) and checks every byte of them. Every lost frame has to
// show in the sequence numbers of the receive header.
//
// Frames of one run must come in order, and between two of them the sequence number must grow exactly as
// their own numbers do. Between the last frame of one run and the first of the next it must grow at least
// by what the next run had sent before.
#include <inttypes.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include "lane_frame.h"
#include "lane_open.h"

static volatile sig_atomic_t gStop;

static void OnSignal(int number) {
    (void)number;
    gStop = 1;
}

static void PrintUsage(FILE* to) {
    fputs("usage: lane-check [-n NAME | -d INDEX] [-e NUMBER] [-t SECONDS]\n"
          "  -n NAME     friendly name of the device, for example lane-2\n"
          "  -d INDEX    index of the device, 0 when neither is given\n"
          "  -e NUMBER   stop after a frame of this number, of any run\n"
          "  -t SECONDS  stop after SECONDS seconds\n"
          "Prints \"ready\" when it receives and \"N frames, M missing, R runs, E errors\" at the end.\n",
          to);
}

typedef struct Check {
    uint64_t frames, missing, runs, errors;
    uint32_t idle;                  // items since the last frame that were no frames
    uint32_t run, number, sequence; // of the last frame
} Check;

static void Complain(Check* check, const char* what, uint32_t run, uint32_t number, uint32_t sequence) {
    if (check->errors++ < 10) {
        fprintf(stderr,
                "lane-check: %s: run %" PRIu32 " number %" PRIu32 " sequence %" PRIu32 " after run %" PRIu32
                " number %" PRIu32 " sequence %" PRIu32 "\n",
                what, run, number, sequence, check->run, check->number, check->sequence);
    }
}

// Returns the frame's number.
static uint32_t CheckFrame(Check* check, const uint8_t* received, uint32_t length) {
    uint32_t run = 0;
    uint32_t number = 0;
    uint32_t sequence;
    uint32_t nanoseconds;
    memcpy(&sequence, received + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, sizeof sequence);
    memcpy(&nanoseconds, received + QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, sizeof nanoseconds);
    if (length <= QBX_RAW_HEADER_2_SIZE || nanoseconds > 999999999 ||
        !LaneFrameCheck(received + QBX_RAW_HEADER_2_SIZE, length - QBX_RAW_HEADER_2_SIZE, &run, &number)) {
        Complain(check, "torn frame", run, number, sequence);
        return 0;
    }
    if (check->frames == 0 || run != check->run) {
        if (check->frames != 0 && sequence - check->sequence - 1 < number) {
            Complain(check, "hidden loss before a run", run, number, sequence);
        }
        ++check->runs;
    } else if (number <= check->number) {
        Complain(check, "wrong order", run, number, sequence);
    } else if (number - check->number != sequence - check->sequence - check->idle) {
        Complain(check, "wrong sequence number", run, number, sequence);
    }
    if (check->frames != 0) {
        check->missing += sequence - check->sequence - 1 - check->idle;
    }
    ++check->frames;
    check->idle = 0;
    check->run = run;
    check->number = number;
    check->sequence = sequence;
    return number;
}

static int Receive(const LaneDevice* lane, Check* check, uint64_t lastNumber, time_t seconds) {
    static uint8_t buffer[QBX_RAW_HEADER_2_SIZE + LANE_FRAME_MAX + 4];
    struct timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (;;) {
        struct timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        const int last = gStop != 0 || (seconds != 0 && now.tv_sec - start.tv_sec >= seconds);
        KESTATUS status = QBX_WaitForRawFrame(lane->handle, last ? 0 : 50);
        if (status != KESTATUS_SUCCESS && status != KESTATUS_TIMEOUT) {
            return LaneFailed(lane, "waiting for a frame", status);
        }
        for (unsigned taken = 0; taken < 100000; ++taken) {
            uint32_t length = 0;
            QBXRawFrameType type = QBXRawFrameType_Unknown;
            status = QBX_GetReceivedRawFrame(lane->handle, &type, buffer, sizeof buffer, &length);
            if (status == KESTATUS_NO_DATA) {
                break;
            }
            if (status != KESTATUS_SUCCESS) {
                return LaneFailed(lane, "taking a frame", status);
            }
            if (type == QBXRawFrameType_Idle) {
                ++check->idle;
            } else if (CheckFrame(check, buffer, length) == lastNumber) {
                return 0;
            }
        }
        if (last) {
            return 0;
        }
    }
}

int main(int argc, char** argv) {
    LaneDevice lane = {"lane-check", NULL, 0, 0};
    Check check = {0, 0, 0, 0, 0, 0, 0, 0};
    uint64_t lastNumber = UINT64_MAX;
    time_t seconds = 0;
    int option;
    while ((option = getopt(argc, argv, "n:d:e:t:h")) != -1) {
        switch (option) {
        case 'n':
            lane.name = optarg;
            break;
        case 'd':
            lane.index = (uint32_t)LaneNumber(&lane, optarg);
            break;
        case 'e':
            lastNumber = LaneNumber(&lane, optarg);
            break;
        case 't':
            seconds = (time_t)LaneNumber(&lane, optarg);
            break;
        case 'h':
            PrintUsage(stdout);
            return 0;
        default:
            PrintUsage(stderr);
            return 1;
        }
    }
    if (optind != argc) {
        PrintUsage(stderr);
        return 1;
    }
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = OnSignal;
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    if (LaneOpen(&lane, LANE_RX_HEADER) != 0) {
        return 1;
    }
    const KESTATUS status = QBX_EnableRawRx(lane.handle);
    if (status != KESTATUS_SUCCESS) {
        return LaneFailed(&lane, "enabling reception", status);
    }
    puts("ready");
    fflush(stdout);
    const int result = Receive(&lane, &check, lastNumber, seconds);
    QBX_CloseDevice(lane.handle);
    printf("%" PRIu64 " frames, %" PRIu64 " missing, %" PRIu64 " runs, %" PRIu64 " errors\n", check.frames,
           check.missing, check.runs, check.errors);
    return result != 0 || check.errors != 0 ? 1 : 0;
}
