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

int main(int argc, char** argv) {
    LaneDevice lane = {"lane-send", NULL, 0, 0};
    uint64_t count = 1;
    uint64_t rate = 0;
    uint32_t length = 0;
    uint32_t batch = 32;
    uint32_t run = (uint32_t)getpid();
    int option;
    while ((option = getopt(argc, argv, "n:d:c:l:r:b:i:h")) != -1) {
        switch (option) {
        case 'n':
            lane.name = optarg;
            break;
        case 'd':
            lane.index = (uint32_t)LaneNumber(&lane, optarg);
            break;
        case 'c':
            count = LaneNumber(&lane, optarg);
            break;
        case 'l':
            length = (uint32_t)LaneNumber(&lane, optarg);
            break;
        case 'r':
            rate = LaneNumber(&lane, optarg);
            break;
        case 'b':
            batch = (uint32_t)LaneNumber(&lane, optarg);
            break;
        case 'i':
            run = (uint32_t)LaneNumber(&lane, optarg);
            break;
        case 'h':
            PrintUsage(stdout);
            return 0;
        default:
            PrintUsage(stderr);
            return 1;
        }
    }
    if (optind != argc || batch < 1 || batch > 64 ||
        (length != 0 && (length < LANE_FRAME_MIN || length > LANE_FRAME_MAX))) {
        PrintUsage(stderr);
        return 1;
    }
    if (LaneOpen(&lane, LANE_TX) != 0) {
        return 1;
    }
    puts("ready");
    fflush(stdout);
    struct timespec due;
    clock_gettime(CLOCK_MONOTONIC, &due);
    uint64_t sent = 0;
    while (count == 0 || sent < count) {
        const uint64_t left = count == 0 ? batch : count - sent;
        const uint32_t frames = left < batch ? (uint32_t)left : batch;
        if (SendBatch(&lane, run, (uint32_t)sent, frames, length) != 0) {
            return 1;
        }
        sent += frames;
        Pace(&due, rate, frames);
    }
    QBX_CloseDevice(lane.handle);
    printf("%" PRIu64 " frames sent\n", sent);
    return 0;
}
