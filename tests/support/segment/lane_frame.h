// Numbered test frames. Every byte follows from the run (who sent) and the number, so that a receiver
// recognises a torn, repeated or foreign frame.
//
//   0   destination, broadcast     6   source, locally administered
//   12  EtherType 0x88B5           14  run, u32        18  number, u32      22...  filler
// Native byte order.
#ifndef FLOWLANE_TESTS_LANE_FRAME_H
#define FLOWLANE_TESTS_LANE_FRAME_H

#include <stdint.h>
#include <string.h>

enum { LANE_FRAME_MIN = 60, LANE_FRAME_MAX = 1514, LANE_FRAME_HEADER = 22 };

static inline uint64_t LaneMix(uint64_t value) {
    value ^= value >> 30;
    value *= 0xBF58476D1CE4E5B9u;
    value ^= value >> 27;
    value *= 0x94D049BB133111EBu;
    return value ^ value >> 31;
}

// The length of a frame when lengths vary.
static inline uint32_t LaneFrameLength(uint32_t run, uint32_t number) {
    const uint64_t mixed = LaneMix((uint64_t)run << 32 | number);
    return LANE_FRAME_MIN + (uint32_t)(mixed % (LANE_FRAME_MAX - LANE_FRAME_MIN + 1));
}

// Writes a frame of LANE_FRAME_MIN to LANE_FRAME_MAX bytes.
static inline void LaneFrameFill(uint8_t* frame, uint32_t length, uint32_t run, uint32_t number) {
    static const uint8_t header[14] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x02,
                                       0x51, 0x42, 0x58, 0x01, 0x00, 0x88, 0xB5};
    memcpy(frame, header, sizeof header);
    memcpy(frame + 14, &run, sizeof run);
    memcpy(frame + 18, &number, sizeof number);
    uint64_t state = LaneMix(((uint64_t)number << 32 | run) ^ length);
    for (uint32_t at = LANE_FRAME_HEADER; at < length; at += 8) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        const uint64_t word = state ^ state >> 29;
        const uint32_t rest = length - at;
        memcpy(frame + at, &word, rest < 8 ? rest : 8);
    }
}

// Whether a frame is whole; run and number get what it says of itself.
static inline int LaneFrameCheck(const uint8_t* frame, uint32_t length, uint32_t* run, uint32_t* number) {
    uint8_t expected[LANE_FRAME_MAX];
    if (length < LANE_FRAME_MIN || length > LANE_FRAME_MAX) {
        return 0;
    }
    memcpy(run, frame + 14, sizeof(*run));
    memcpy(number, frame + 18, sizeof(*number));
    LaneFrameFill(expected, length, *run, *number);
    return memcmp(expected, frame, length) == 0;
}

#endif
