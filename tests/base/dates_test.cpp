// Dates: the two feed forms, the arithmetic with its kept day walk, file
// stamps and local text.
#include "base/dates.h"

#include "base_test_util.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

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

TEST(Dates, FeedDatesAreReadAsUtcOrNotAtAll) {
    const char *none = "0000-00-00 00:00:00";
    const parse_case_t cases[] = {
        // RFC 822, with and without weekday, seconds, zone; zones to +14:00 and -12:00.
        {"Mon, 02 Jan 2006 15:04:05 GMT", "2006-01-02 15:04:05"}, {"2 Jan 2006 15:04 +0100", "2006-01-02 14:04:00"},
        {"02 Jan 2006 15:04:05 -0100", "2006-01-02 16:04:05"}, {"02 Jan 2006 15:04:05 +0530", "2006-01-02 09:34:05"},
        {"Sat, 01 Jan 2000 00:30:00 +1400", "1999-12-31 10:30:00"},
        {"Fri, 31 Dec 1999 23:30:00 -1200", "2000-01-01 11:30:00"},
        {"30 Jan 2006 23:30:00 -0100", "2006-01-31 00:30:00"}, {"01 Mar 2004 00:30:00 +0100", "2004-02-29 23:30:00"},
        {"02 Jan 2006 15:04:05 EST", "2006-01-02 20:04:05"}, {"Tue, 03 Jan 2006 23:04:05 PDT", "2006-01-04 06:04:05"},
        {"02 Jan 2006 15:04:05 CST", "2006-01-02 21:04:05"}, {"02 Jan 2006 15:04:05 A", "2006-01-02 16:04:05"},
        {"02 Jan 2006 15:04:05 Z", "2006-01-02 15:04:05"}, {"02 Jan 2006 15:04:05 UTC", "2006-01-02 15:04:05"},
        {"02 Jan 2006 15:04:05 CEST", "2006-01-02 15:04:05"}, // a name not known says nothing: UTC
        {"02 Jan 2006 15:04:05", "2006-01-02 15:04:05"}, {"Tuesday, 10 June 2003 04:00 GMT (GMT)", "2003-06-10 04:00:00"},
        {"Mon, 02 Jan 2006", "2006-01-02 00:00:00"}, {"02 Jan 06 15:04 +0000", "0006-01-02 15:04:00"},
        {"31 Dec 2016 23:59:60 GMT", "2016-12-31 23:59:59"}, {"01 Jan 0000 00:00:00 GMT", "0000-01-01 00:00:00"},
        // ISO 8601, also where RSS wants RFC 822.
        {"2024-05-01T10:00:00Z", "2024-05-01 10:00:00"}, {"2020-01-02T03:04:05+02:00", "2020-01-02 01:04:05"},
        {"2006-01-02T15:04:05.123+09:00", "2006-01-02 06:04:05"}, {"2024-05-01T10:00:00", "2024-05-01 10:00:00"},
        {" 2024-05-01 10:00:00 +0200 ", "2024-05-01 08:00:00"}, {"2024-05-01T10:00-05", "2024-05-01 15:00:00"},
        {"2024-03-01T01:00:00+14:00", "2024-02-29 11:00:00"}, {"2023-12-31T20:00:00-12:00", "2024-01-01 08:00:00"},
        {"2024-05-01", "2024-05-01 00:00:00"},
        // No form reads these.
        {"", none}, {"Mon, ", none}, {"yesterday", none}, {"2024-13-01T00:00:00Z", none}, {"2023-02-29", none},
        {"31 Feb 2024 10:00 GMT", none}, {"2024-05-01T24:00:00Z", none}, {"2024-05-01T10:00:00+99:99", none},
        {"02 Jan 2006 15:04:05 +9999", none}, {"Xyz, 02 Jan 2006", none}, {"02 Foo 2006", none}, {"20 May", none},
        {"2024-05-01T10:00:00Z and more", none}, {"01 Jan 0000 00:30 +0100", none}, {"24-05-01T10:00:00Z", none},
        {"02 Jan 206 15:04 GMT", none}, {"2024-05-01T10", none}, {"2024-05-01T10:00:00.Z", none},
    };
    for (const auto &c : cases) {
        data_t t = data_from_pointer(c.text, strlen(c.text));
        EXPECT_EQ(show(date_parse_feed(&t)), c.expected) << c.text;
    }
    // Each reader reads its own form only.
    data_t iso = data_from_pointer("2024-05-01T10:00:00Z", 20), rfc = data_from_pointer("1 May 2024 10:00 GMT", 20);
    EXPECT_EQ(show(date_parse_rfc822(&iso)), none);
    EXPECT_EQ(show(date_parse_rfc3339(&rfc)), none);
}

TEST(Dates, ReadersStayInsideAnyText) {
    // Every prefix of a long date, each in a buffer of its exact size.
    for (std::string full : {"Mon, 02 Jan 2006 15:04:05 +0100", "2006-01-02T15:04:05.123-09:30"}) {
        for (size_t n = 0; n <= full.size(); n++) {
            std::vector<u8> exact(full.begin(), full.begin() + n);
            data_t t = {exact.size(), exact.size(), exact.empty() ? nullptr : exact.data()};
            date_parse_feed(&t);
            date_from_file_text(&t);
        }
    }
    // Long texts: no date, or the date behind the spaces.
    const std::string cases[] = {std::string(10000, '9'),
                                 std::string("2024-05-01T10:00:00.").append(10000, '1').append("Z"),
                                 std::string("02 Jan 2006 15:04 +").append(10000, '0'),
                                 std::string(10000, ' ').append("2024-05-01"),
                                 "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "01 Feb 2006 10:00:00 ~9999"};
    const char *expected[] = {"0000-00-00 00:00:00", "2024-05-01 10:00:00", "0000-00-00 00:00:00",
                              "2024-05-01 00:00:00", "0000-00-00 00:00:00", "0000-00-00 00:00:00"};
    for (size_t i = 0; i < std::size(cases); i++) {
        data_t t = data_from_pointer(cases[i].data(), cases[i].size());
        EXPECT_EQ(show(date_parse_feed(&t)), expected[i]) << cases[i].substr(0, 40);
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
