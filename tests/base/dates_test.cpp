// Dates: the two feed forms, the arithmetic with its kept day walk, file
// stamps and local text.
#include "base/dates.h"

#include "base_test_util.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

std::string show(date_t d) {
    char text[64];
    snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u", d.year, d.month, d.day, d.hour, d.minute,
             d.second);
    return text;
}

struct parse_case_t {
    const char *text;
    const char *expected;
};

} // namespace

TEST(Dates, Rfc822) {
    const parse_case_t cases[] = {
        {"Mon, 02 Jan 2006 15:04:05 GMT", "2006-01-02 15:04:05"},
        {"02 Jan 2006 15:04:05 +0100", "2006-01-02 14:04:05"}, {"02 Jan 2006 15:04:05 -0100", "2006-01-02 16:04:05"},
        {"02 Jan 2006 15:04:05 +0530", "2006-01-02 09:34:05"}, {"02 Jan 2006 23:30:00 -0100", "2006-01-03 00:30:00"},
        {"02 Jan 2006 00:30:00 +0100", "2006-01-01 23:30:00"}, {"01 Jan 2006 00:30:00 +0100", "2005-12-31 23:30:00"},
        {"01 Mar 2004 00:30:00 +0100", "2004-02-29 23:30:00"},
        {"02 Jan 2006 15:04:05 EST", "2006-01-02 15:04:05"}, // named zones are not recognised
        {"02 Jan 2006 15:04:05 PDT", "2006-01-02 15:04:05"}, {"02 Jan 2006 15:04:05 Z", "2006-01-02 15:04:05"},
        {"02 Jan 2006 15:04:05 A", "2006-01-02 16:04:05"}, {"02 Jan 2006 15:04:05 N", "2006-01-02 14:04:05"},
        {"02 Jan 2006 15:04:05 J", "2006-01-02 15:04:05"}, {"02 Jan 2006 15:04:05 UT", "2006-01-02 15:04:05"},
        {"02 Jan 06 15:04 +0000", "0006-01-02 15:04:00"}, {"  Tue, 10 Jun 2003 04:00:00 GMT", "2003-06-10 04:00:00"},
        {"2 Jan 2006 15:04:05 GMT", "2006-01-02 15:04:05"},
        {"Sun, 31 Dec 2006 23:59:59 -0001", "2007-01-02 00:00:59"},
        // The forward walk runs a day ahead at a month's end.
        {"30 Jan 2006 23:30:00 -0100", "2006-02-01 00:30:00"}, {"31 Jan 2006 23:30:00 -0100", "2006-02-02 00:30:00"},
        {"", "65535-00-00 00:00:00"}, {"Mon, ", "65535-00-00 00:00:00"},
    };
    for (const auto &c : cases) {
        data_t t = data_from_pointer(c.text, strlen(c.text));
        EXPECT_EQ(show(date_parse_rfc822(&t)), c.expected) << c.text;
    }
}

TEST(Dates, Rfc3339IgnoresTheZone) {
    const parse_case_t cases[] = {
        {"2006-01-02T15:04:05Z", "2006-01-02 15:04:05"}, {"2006-01-02T15:04:05.123+09:00", "2006-01-02 15:04:05"},
        {"2020-01-02T03:04:05+02:00", "2020-01-02 03:04:05"},
        {"2006-01-02", "0000-00-00 00:00:00"}, // fewer than 11 bytes
        {"2006-01-02T", "2006-01-02 00:00:00"}, {"2006-01-02T15:04", "2006-01-02 00:00:00"},
    };
    for (const auto &c : cases) {
        data_t t = data_from_pointer(c.text, strlen(c.text));
        EXPECT_EQ(show(date_parse_rfc3339(&t)), c.expected) << c.text;
    }
}

TEST(Dates, Add) {
    enum { years, months, days, hours, minutes, seconds };
    struct {
        date_t start;
        u32 unit;
        i64 amount;
        const char *expected;
    } cases[] = {
        // The forward day walk runs a day ahead at a month's end.
        {{2006, 1, 30}, days, 1, "2006-02-01 00:00:00"},  {{2006, 1, 31}, days, 1, "2006-02-02 00:00:00"},
        {{2006, 1, 10}, days, 5, "2006-01-15 00:00:00"},  {{2006, 3, 1}, days, -1, "2006-02-28 00:00:00"},
        {{2004, 3, 1}, days, -1, "2004-02-29 00:00:00"},  {{2006, 3, 15}, days, -45, "2006-01-29 00:00:00"},
        {{2006, 1, 1}, seconds, -1, "2005-12-31 23:59:59"}, {{2006, 1, 1}, seconds, 3600 * 25, "2006-01-02 01:00:00"},
        {{2006, 1, 31, 10}, months, 1, "2006-02-28 10:00:00"}, {{2006, 11, 15}, months, 3, "2007-02-15 00:00:00"},
        {{2006, 2, 15}, months, -14, "2004-12-15 00:00:00"}, {{2004, 2, 29}, years, 1, "2005-02-28 00:00:00"},
        {{2004, 2, 29}, years, 4, "2008-02-29 00:00:00"},   {{1, 5, 5}, years, -10, "0000-05-05 00:00:00"},
        {{65000, 5, 5}, years, 1000, "65535-05-05 00:00:00"},
        {{}, days, 0, "0000-00-00 00:00:00"}, // no date stays no date
    };
    for (const auto &c : cases) {
        i64 o[6] = {};
        o[c.unit] = c.amount;
        EXPECT_EQ(show(date_add(c.start, o[0], o[1], o[2], o[3], o[4], o[5])), c.expected) << show(c.start);
    }
    // Huge offsets end quickly and stay within the record.
    date_t d = {2006, 1, 1, 0, 0, 0, 0};
    EXPECT_EQ(date_add(d, 0, 0, INT64_MAX, 0, 0, 0).year, 65535);
    EXPECT_EQ(date_add(d, 0, 0, INT64_MIN, 0, 0, 0).year, 0);
    EXPECT_EQ(date_add(d, 0, 0, 0, 0, 0, INT64_MAX).year, 65535);
    EXPECT_EQ(date_add(d, INT64_MIN, INT64_MIN, 0, 0, 0, 0).year, 0);
}

TEST(Dates, FileText) {
    u8 storage[32];
    data_t out = {sizeof(storage), 2, storage};
    date_t d = {2006, 1, 2, 15, 4, 5, 0};
    data_t text = date_to_file_text(d, &out);
    EXPECT_EQ(text_of(text), "20060102_150405");
    EXPECT_EQ(text.bytes, storage + 2);
    EXPECT_EQ(out.used, 17u);

    struct {
        const char *text;
        const char *expected;
    } cases[] = {
        {"20060102_150405", "2006-01-02 15:04:05"}, {"20040229_000000", "2004-02-29 00:00:00"},
        {"20060102_150405.bin", "2006-01-02 15:04:05"},
    };
    for (const auto &c : cases) {
        data_t t = data_from_pointer(c.text, strlen(c.text));
        EXPECT_EQ(show(date_from_file_text(&t)), c.expected) << c.text;
    }
    for (const char *bad : {"20060230_150405", "20050229_000000", "20061301_000000", "20060100_000000",
                            "20060102_240000", "20060102_236000", "20060102_235960", "20060102-150405",
                            "2006010_150405", "2006a102_150405", ""}) {
        data_t t = data_from_pointer(bad, strlen(bad));
        EXPECT_EQ(show(date_from_file_text(&t)), "0000-00-00 00:00:00") << bad;
    }
    // Round trip.
    data_t again = data_from_pointer(text.bytes, text.used);
    EXPECT_EQ(date_to_number(date_from_file_text(&again)), date_to_number(d));
}

TEST(Dates, LocalTextInTheCLocaleAndUtc) {
    // The zone and the locale are read when first needed.
    setenv("TZ", "UTC", 1);
    setenv("LC_ALL", "C", 1);
    tzset();
    u8 storage[256];
    data_t out = {sizeof(storage), 0, storage};
    date_t d = {2006, 1, 2, 15, 4, 5, 0};
    data_t sep = data_literal(", ");
    data_t both = date_to_string(d, &out, 0, &sep);
    EXPECT_EQ(text_of(both), "Monday 2 January 2006, 15:04:05");
    data_t date_only = date_to_string(d, &out, date_string_no_time, nullptr);
    EXPECT_EQ(text_of(date_only), "Monday 2 January 2006");
    data_t time_only = date_to_string(d, &out, date_string_no_date, &sep);
    EXPECT_EQ(text_of(time_only), "15:04:05");
    EXPECT_EQ(out.used, both.used + date_only.used + time_only.used);

    setenv("TZ", "XYZ-2", 1); // two hours east of UTC, without the zone database
    tzset();
    data_t shifted = date_to_string(d, &out, date_string_no_date, nullptr);
    EXPECT_EQ(text_of(shifted), "17:04:05");

    // A full destination takes what fits and never more.
    u8 small[6];
    data_t tiny = {sizeof(small), 0, small};
    data_t cut = date_to_string(d, &tiny, 0, &sep);
    EXPECT_LE(cut.used, sizeof(small));
    EXPECT_EQ(tiny.used, cut.used);
    unsetenv("TZ");
    tzset();
}
