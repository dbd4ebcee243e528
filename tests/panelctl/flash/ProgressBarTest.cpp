#include "panelctl/flash/ProgressBar.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// 2048 of 4000 bytes after a second: 51 %, 2 KiB/s, 1952 bytes are left for 0.95 s.
ProgressMeter halfWay()
{
    ProgressMeter meter(4000);
    meter.note(ProgressMeter::Time(seconds(1)), 0);
    meter.note(ProgressMeter::Time(seconds(2)), 2048);
    return meter;
}

} // namespace

// 77 columns: 11 of label and percentage, 19 + 12 + 12 of text, 3 of frame, and 20 are left for the bar.
TEST(ProgressBar, usualWidth_hasEverything)
{
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {}, 80),
              "main   51 % [##########----------] 2048 of 4000 bytes,  2.0 KiB/s, 0:01 left");
}

TEST(ProgressBar, wideTerminal_doesNotStretchIt)
{
    EXPECT_EQ(ProgressBar::format("servo", halfWay(), {}, 300),
              "servo  51 % [####################--------------------] 2048 of 4000 bytes,  2.0 KiB/s, 0:01 left");
}

TEST(ProgressBar, narrowTerminal_losesTheEndThenTheBar)
{
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {}, 58),
              "main   51 % [#####-----] 2048 of 4000 bytes,  2.0 KiB/s");
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {}, 57), "main   51 % [##########-----------] 2048 of 4000 bytes");
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {}, 46), "main   51 % [#####-----] 2048 of 4000 bytes");
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {}, 27), "main   51 % [#####-----]");
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {}, 26), "main   51 %");
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {}, 10), "main   ");
}

TEST(ProgressBar, everyWidth_leavesThreeColumnsFree)
{
    for (std::size_t columns = 0; columns <= 200; ++columns)
        EXPECT_LE(ProgressBar::format("servo", halfWay(), {}, columns).size(), columns < 3 ? 0 : columns - 3)
            << columns;
}

TEST(ProgressBar, standstill_hasNoTime)
{
    ProgressMeter meter(1000);
    meter.note(ProgressMeter::Time(seconds(1)), 0);
    EXPECT_EQ(ProgressBar::format("main", meter, {}, 72),
              "main    0 % [------------]    0 of 1000 bytes,  0.0 KiB/s, -:-- left");
}

// 0.95 s and 2.1 s.
TEST(ProgressBar, pauses_countForTheEnd)
{
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {milliseconds(2100), {}}, 80),
              "main   51 % [##########----------] 2048 of 4000 bytes,  2.0 KiB/s, 0:04 left");
}

TEST(ProgressBar, longSilence_standsInPlaceOfRateAndEnd)
{
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {{}, milliseconds(3999)}, 80),
              "main   51 % [##########----------] 2048 of 4000 bytes,  2.0 KiB/s, 0:01 left");
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {{}, milliseconds(4000)}, 80),
              "main   51 % [##########----------] 2048 of 4000 bytes, no reply for 4 s");
    EXPECT_EQ(ProgressBar::format("main", halfWay(), {{}, milliseconds(12900)}, 80),
              "main   51 % [##########----------] 2048 of 4000 bytes, no reply for 12 s");
}

TEST(ProgressBar, silenceAtTheEnd_isFinishing)
{
    ProgressMeter meter(1024);
    meter.note(ProgressMeter::Time(seconds(1)), 0);
    meter.note(ProgressMeter::Time(seconds(2)), 1024);
    EXPECT_EQ(ProgressBar::format("main", meter, {{}, seconds(9)}, 72),
              "main  100 % [############] 1024 of 1024 bytes,  1.0 KiB/s, finishing");
}

TEST(ProgressBar, all_isFinishing)
{
    ProgressMeter meter(1024);
    meter.note(ProgressMeter::Time(seconds(1)), 0);
    meter.note(ProgressMeter::Time(seconds(2)), 1024);
    EXPECT_EQ(ProgressBar::format("main", meter, {}, 72),
              "main  100 % [############] 1024 of 1024 bytes,  1.0 KiB/s, finishing");
}

TEST(ProgressBar, times_haveHoursWhenNeeded)
{
    EXPECT_EQ(ProgressBar::formatTime(seconds(0)), "0:00");
    EXPECT_EQ(ProgressBar::formatTime(seconds(61)), "1:01");
    EXPECT_EQ(ProgressBar::formatTime(seconds(3599)), "59:59");
    EXPECT_EQ(ProgressBar::formatTime(seconds(3723)), "1:02:03");
}

} // namespace Vantor
