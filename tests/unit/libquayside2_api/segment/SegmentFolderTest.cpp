// What happens when the folder of the segments is full or cannot be written: a status, no file, no signal.
#include "ChildProcess.h"
#include "SegmentFixture.h"

namespace {

using namespace testsupport;

class SegmentFolderTest : public SegmentFixture {};

TEST_F(SegmentFolderTest, States) {
    struct Row {
        const char* options;
        const char* status;
        const char* files;
    };
    for (const Row& row : {
             Row{"size=64k", "0xe001001c", "0 files"},    // no space at all
             Row{"size=8m", "0xe001001c", "0 files"},     // for half of it
             Row{"size=32m", "0x00000000", "1 files"},    // enough
             Row{"ro", "0xe001001e", "0 files"},          // read-only
             Row{"nr_inodes=1", "0xe001001c", "0 files"}, // no place for a file
         }) {
        ChildProcess probe(LANE_PROBE_PATH, {"folder", row.options, "1"});
        const std::string state = probe.ReadLine();
        if (state.rfind("cannot mount", 0) == 0) {
            GTEST_SKIP() << "this machine lets nobody make a mount namespace: " << state;
        }
        EXPECT_EQ(state, row.status) << "state with " << row.options;
        EXPECT_EQ(probe.ReadLine(), row.status) << row.options;
        EXPECT_EQ(probe.ReadLine(), row.files) << row.options;
        EXPECT_EQ(probe.Wait(), 0) << row.options;
    }
}

} // namespace
