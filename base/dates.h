// dates.h - RFC 822 and ISO 8601 dates read into one 8-byte UTC record,
// date arithmetic, file-name stamps and local date text.
#pragma once

#include "base/memory.h"

struct date_t {
    u16 year; // as written: a two-digit year stays so
    u8 month; // 1 to 12; 0 when absent
    u8 day;
    u8 hour;
    u8 minute;
    u8 second;
    u8 unused; // stays zero
};
static_assert(sizeof(date_t) == 8, "date_t is one word");

enum : u32 {
    date_string_no_date = 0x1,
    date_string_no_time = 0x2,
};

bool date_is_leap_year(u32 year);
u8 date_month_length(u32 year, u32 month);
u64 date_to_number(date_t date);
bool date_is_after(date_t a, date_t b);
bool date_is_before(date_t a, date_t b);
bool date_is_empty(const date_t *date);
date_t date_add(date_t date, i64 years, i64 months, i64 days, i64 hours, i64 minutes, i64 seconds);
// The readers give UTC with the text's zone applied (none written means
// UTC), or no date (all zero) for a text that isn't of their form.
// RFC 822: weekday and seconds optional, "Tue, 2 Jan 2006 15:04:05 EST".
date_t date_parse_rfc822(const data_t *text);
// ISO 8601: "2006-01-02", "2006-01-02T15:04:05.123+01:00", zone optional.
date_t date_parse_rfc3339(const data_t *text);
// Whichever of the two forms reads the text: what a feed's date fields get.
date_t date_parse_feed(const data_t *text);
data_t date_to_file_text(date_t date, data_t *destination);
date_t date_from_file_text(const data_t *text);
date_t date_now();
data_t date_to_string(date_t date, data_t *destination, u32 flags, const data_t *separator);
