// The start-up's sums: the size of the text batches from the screen.
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
