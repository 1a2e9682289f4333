// lane-send: sends numbered frames (lane_frame.h) on a device.
#include <inttypes.h>
#include <time.h>
#include <unistd.h>

#include "lane_frame.h"
#include "lane_open.h"

static void PrintUsage(FILE* to) {
    fputs("usage: lane-send [-n NAME | -d INDEX] [-c COUNT] [-l LENGTH] [-r RATE] [-b BATCH] [-i RUN]\n"
          "  -n NAME    friendly name of the device, for example lane-1\n"
          "  -d INDEX   index of the device, 0 when neither is given\n"
          "  -c COUNT   how many frames, 0 without end (default 1)\n"
          "  -l LENGTH  bytes of each frame, 60 to 1514; 0, the default, varies them\n"
          "  -r RATE    frames per second, 0, the default, as fast as possible\n"
          "  -b BATCH   frames handed over at a time, 1 to 64 (default 32)\n"
          "  -i RUN     number that tells this sender's frames from another's (default: process id)\n"
          "Prints \"ready\" before the first frame and \"N frames sent\" at the end.\n",
          to);
}

// Sleeps until the next batch is due.
static void Pace(struct timespec* due, uint64_t rate, uint64_t frames) {
    if (rate == 0) {
        return;
    }
    const uint64_t nanoseconds = (uint64_t)due->tv_nsec + frames * 1000000000u / rate;
    due->tv_sec += (time_t)(nanoseconds / 1000000000u);
    due->tv_nsec = (long)(nanoseconds % 1000000000u);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, due, NULL) != 0) {
    }
}

static int SendBatch(const LaneDevice* lane, uint32_t run, uint32_t first, uint32_t frames, uint32_t length) {
    uint8_t frame[LANE_FRAME_MAX];
    for (uint32_t number = first; number != first + frames; ++number) {
        const uint32_t bytes = length != 0 ? length : LaneFrameLength(run, number);
        LaneFrameFill(frame, bytes, run, number);
        const KESTATUS status = QBX_SubmitRawFrame(lane->handle, frame, bytes, NULL);
        if (status != KESTATUS_SUCCESS) {
            return LaneFailed(lane, "submitting a frame", status);
        }
    }
    const KESTATUS status = QBX_SendRawFrames(lane->handle);
    return status == KESTATUS_SUCCESS ? 0 : LaneFailed(lane, "sending", status);
}

typedef struct Options {
    uint64_t count;
    uint64_t rate;
    uint32_t length;
    uint32_t batch;
    uint32_t run;
} Options;

// Ends the program when the command line is wrong or asks for the usage.
static void ReadOptions(int argc, char** argv, LaneDevice* lane, Options* options) {
    int option;
    while ((option = getopt(argc, argv, "n:d:c:l:r:b:i:h")) != -1) {
        switch (option) {
        case 'n':
            lane->name = optarg;
            break;
        case 'd':
            lane->index = (uint32_t)LaneNumber(lane, optarg);
            break;
        case 'c':
            options->count = LaneNumber(lane, optarg);
            break;
        case 'l':
            options->length = (uint32_t)LaneNumber(lane, optarg);
            break;
        case 'r':
            options->rate = LaneNumber(lane, optarg);
            break;
        case 'b':
            options->batch = (uint32_t)LaneNumber(lane, optarg);
            break;
        case 'i':
            options->run = (uint32_t)LaneNumber(lane, optarg);
            break;
        case 'h':
            PrintUsage(stdout);
            exit(0);
        default:
            PrintUsage(stderr);
            exit(1);
        }
    }
    if (optind != argc || options->batch < 1 || options->batch > 64 ||
        (options->length != 0 && (options->length < LANE_FRAME_MIN || options->length > LANE_FRAME_MAX))) {
        PrintUsage(stderr);
        exit(1);
    }
}

int main(int argc, char** argv) {
    LaneDevice lane = {"lane-send", NULL, 0, 0};
    Options options = {.count = 1, .rate = 0, .length = 0, .batch = 32, .run = (uint32_t)getpid()};
    ReadOptions(argc, argv, &lane, &options);
    if (LaneOpen(&lane, LANE_TX) != 0) {
        return 1;
    }
    puts("ready");
    fflush(stdout);
    struct timespec due;
    clock_gettime(CLOCK_MONOTONIC, &due);
    uint64_t sent = 0;
    while (options.count == 0 || sent < options.count) {
        const uint64_t left = options.count == 0 ? options.batch : options.count - sent;
        const uint32_t frames = left < options.batch ? (uint32_t)left : options.batch;
        if (SendBatch(&lane, options.run, (uint32_t)sent, frames, options.length) != 0) {
            return 1;
        }
        sent += frames;
        Pace(&due, options.rate, frames);
    }
    QBX_CloseDevice(lane.handle);
    printf("%" PRIu64 " frames sent\n", sent);
    return 0;
}
