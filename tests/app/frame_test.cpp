// The frame loop's sums: the size of the text batches from the screen, the
// refresh period, and the sleep of a loop that paces itself.
#include "app/app.h"

#include <gtest/gtest.h>

TEST(AppFrame, TextCellsFromTheScreen) {
    struct {
        i32 width, height;
        u32 rows, columns;
    } cases[] = {
        {1920, 1080, 78, 960}, // 1080 / 14 = 77.1: rows round up
        {1280, 700, 50, 640},  // exact
        {1281, 701, 51, 640},  // columns round down
        {0, 0, 0, 0},
        {-5, -5, 0, 0}, // a screen the system couldn't read
    };
    for (const auto &c : cases) {
        u32 rows = 99, columns = 99;
        app_text_cells(c.width, c.height, &rows, &columns);
        EXPECT_EQ(rows, c.rows) << c.width << "x" << c.height;
        EXPECT_EQ(columns, c.columns) << c.width << "x" << c.height;
    }
}

TEST(AppFrame, PeriodAndPacing) {
    EXPECT_EQ(app_period_ms(60), 16u);
    EXPECT_EQ(app_period_ms(144), 6u);
    EXPECT_EQ(app_period_ms(0), 16u); // unknown rate: as at 60 Hz
    const f64 frequency = 1000000; // ticks a second
    struct {
        u64 work_ticks, message_ticks, period, sleep;
    } cases[] = {
        {0, 0, 16, 16},          // the first frame: nothing measured yet
        {3000, 2000, 16, 11},    // 3 ms + 2 ms
        {3001, 1, 16, 11},       // each part rounds up on its own: 4 + 1, not 4
        {10000, 10000, 16, 0},   // over the period: no sleep, never negative
        {999999999, 0, 16, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(app_pacing_sleep_ms(c.work_ticks, c.message_ticks, frequency, c.period), c.sleep)
            << c.work_ticks << " " << c.message_ticks;
}
