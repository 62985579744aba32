// The small pieces every subsystem uses: console wrapping, messages and alerts.
#include <gtest/gtest.h>
#include <thread>

#include "base/ALERT.h"
#include "base/CONSOLE.h"
#include "base/MESSAGE.h"
#include "tests/support/ALERTRECORDER.h"

namespace {
struct WRAPCASE {
    const char *name;
    const char *text;
    size_t width;
    const char *wrapped;
};

const WRAPCASE kWrapCases[] = {
    {"no-width", "one two three", 0, "one two three"},
    {"fits", "one two", 7, "one two"},
    {"breaks-at-blank", "one two three", 8, "one two\nthree"},
    {"keeps-newlines", "\nab cd\n", 3, "\nab\ncd\n"},
    {"long-word-cut", "abcdefghij", 4, "abcd\nefgh\nij"},
    {"usage-line", "Usage: ./vellowick /uninstall  Removes MIME types and BFS indexes\n", 40,
     "Usage: ./vellowick /uninstall  Removes\nMIME types and BFS indexes\n"},
};

TEST(CONSOLETest, WrapsToWidth) {
    for (const WRAPCASE &c : kWrapCases)
        EXPECT_EQ(CONSOLE::wrap(c.text, c.width), c.wrapped) << c.name;
}

TEST(MESSAGETest, CodesAndTypedFields) {
    MESSAGE message(fourcc("hmtr"));
    EXPECT_EQ(message.whatText(), "hmtr");
    EXPECT_EQ(message.what, 0x686d7472u);
    message.addInt64("node", 42);
    message.addString("refs", "file:///a");
    message.addString("refs", "file:///b");
    int64_t node = 0;
    int32_t wrongType = 7;
    std::string ref;
    EXPECT_TRUE(message.findInt64("node", &node) && node == 42);
    EXPECT_FALSE(message.findInt32("node", &wrongType));
    EXPECT_EQ(wrongType, 7);
    EXPECT_EQ(message.countOf("refs"), 2u);
    EXPECT_TRUE(message.findString("refs", &ref, 1) && ref == "file:///b");
    EXPECT_FALSE(message.findString("refs", &ref, 2));
    EXPECT_FALSE(message.findString("missing", &ref));
}

TEST(ALERTTest, RecorderTakesTextsFromAnyThread) {
    ALERTRECORDER recorder;
    std::thread worker([] { ALERT::outOfMemory(4096); });
    worker.join();
    ALERT::showf("Welcome to %s!", "Vellowick News");
    ASSERT_EQ(recorder.count(), 2u);
    EXPECT_EQ(recorder.texts()[0], "Could not allocate required memory.\n\nAllocation size: 4096");
    EXPECT_EQ(recorder.texts()[1], "Welcome to Vellowick News!");
}
} // namespace
