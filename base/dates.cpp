// dates.cpp - RFC 822 and RFC 3339 dates read by position into one UTC
// record, date arithmetic, file-name stamps and local date text.
//
// The readers never fail: what they can't read stays zero. Some odd results
// are kept on purpose because stored data depends on them: named American
// zones are not recognised, RFC 3339 zones are ignored, and the forward day
// walk runs one day ahead at a month's end.
#include "base/dates.h"

#include "base/profiler.h"
#include "base/text.h"
#include "os/os_core.h"

static const char date_day_names[7][4] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
static const char date_month_names[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
// Two letters and a zero: the zero takes part in the comparison.
static const u8 date_zone_names[8][3] = {{'E', 'S', 0}, {'E', 'D', 0}, {'C', 'S', 0}, {'C', 'D', 0},
                                         {'M', 'S', 0}, {'M', 'D', 0}, {'P', 'S', 0}, {'P', 'D', 0}};
static const i8 date_zone_hours[8] = {5, 4, 6, 5, 7, 6, 8, 7};
// Military letter zones "A" to "Z"; "J" is never a zone.
static const i8 date_letter_zone_hours[26] = {1,  2,  3,  4,  5,  6,  7,  8,  9,   127, 10,  11,  12,
                                              -1, -2, -3, -4, -5, -6, -7, -8, -9, -10, -11, -12, 0};
static const u8 date_month_lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

static bool date_is_leap(i64 year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

bool date_is_leap_year(u32 year) { return date_is_leap(year); }

// Months outside 1 to 12 (a date whose month was not found) count 31 days, so
// arithmetic on such a date stays within bounds.
static i64 date_length_of(i64 year, i64 month) {
    if (month < 1 || month > 12) return 31;
    if (month == 2 && date_is_leap(year)) return 29;
    return date_month_lengths[month - 1];
}

u8 date_month_length(u32 year, u32 month) { return (u8)date_length_of(year, month); }

u64 date_to_number(date_t date) {
    return (u64)date.second + (u64)date.minute * 100ull + (u64)date.hour * 10000ull + (u64)date.day * 1000000ull +
           (u64)date.month * 100000000ull + (u64)date.year * 10000000000ull;
}

bool date_is_after(date_t a, date_t b) { return date_to_number(a) > date_to_number(b); }
bool date_is_before(date_t a, date_t b) { return date_to_number(a) < date_to_number(b); }

bool date_is_empty(const date_t *date) {
    return date->year == 0 && date->month == 0 && date->day == 0 && date->hour == 0 && date->minute == 0 &&
           date->second == 0;
}

// value + offset split into a field in [0, base) and a carry, as repeated
// addition or subtraction of `base` would.
static i64 date_carry(i64 value, i64 offset, i64 base, i64 *carry) {
    i64 sum = value + offset;
    i64 q = sum / base;
    i64 r = sum % base;
    if (r < 0) {
        r += base;
        q -= 1;
    }
    *carry += q;
    return r;
}

// Offsets beyond this many days lead past any year a date_t can hold; the
// walk is cut there so that it stays short.
static constexpr i64 date_day_offset_limit = 70000ll * 366;

date_t date_add(date_t date, i64 years, i64 months, i64 days, i64 hours, i64 minutes, i64 seconds) {
    // Keep the large offsets from overflowing the sums below.
    const i64 limit = (i64)1 << 52;
    auto clamp = [](i64 v, i64 l) { return v > l ? l : v < -l ? -l : v; };
    years = clamp(years, limit);
    months = clamp(months, limit);
    days = clamp(days, limit);
    hours = clamp(hours, limit);
    minutes = clamp(minutes, limit);
    seconds = clamp(seconds, limit);

    i64 year = date.year, month = date.month, day = date.day;
    i64 second = date_carry(date.second, seconds, 60, &minutes);
    i64 minute = date_carry(date.minute, minutes, 60, &hours);
    i64 hour = date_carry(date.hour, hours, 24, &days);
    days = clamp(days, date_day_offset_limit);

    // Days, month by month.
    if (days > 0) {
        i64 offset = days;
        while (offset > 0) {
            i64 length = date_length_of(year, month);
            if (day + offset >= length) {
                offset = offset + day - length;
                day = 1;
                month++;
                if (month > 12) {
                    month = 1;
                    year++;
                }
            } else {
                day += offset;
                offset = 0;
            }
        }
    } else if (days < 0) {
        i64 n = -days;
        while (n >= day) {
            n -= day;
            month--;
            if (month < 1) {
                month = 12;
                year--;
            }
            day = date_length_of(year, month);
        }
        day -= n;
    }

    // Months; a month out of range changes the year.
    if (months != 0) {
        i64 index = month - 1 + months;
        i64 q = index / 12, r = index % 12;
        if (r < 0) {
            r += 12;
            q -= 1;
        }
        year += q;
        month = r + 1;
    }
    if (month >= 1 && month <= 12) {
        i64 length = date_length_of(year, month);
        if (day > length) day = length;
    }

    year += years;
    if (year < 0) year = 0;
    if (year > 65535) year = 65535;
    if (month == 2 && day == 29 && !date_is_leap(year)) day = 28;

    date_t result = {};
    result.year = (u16)year;
    result.month = (u8)month;
    result.day = (u8)day;
    result.hour = (u8)hour;
    result.minute = (u8)minute;
    result.second = (u8)second;
    return result;
}

date_t date_parse_rfc822(const data_t *text) {
    date_t date = {};
    const u8 *p = text->bytes;
    i64 size = (i64)text->used;
    i64 at = 0;
    if (size && !p) return date;
    auto left = [&]() { return size - at; };

    while (at < size && char_is_space(p[at])) at++;

    if (left() > 3) {
        for (u32 i = 0; i < 7; i++) {
            if (memory_equal(p + at, 3, date_day_names[i], 3)) {
                at += 5; // "Mon, "
                break;
            }
        }
    }
    if (left() >= 2) {
        date.day = (u8)text_to_i64_plus(p + at, 2);
        at += 2;
        if (at < size && p[at] == ' ') at++;
    }
    if (left() > 3) {
        for (u32 i = 0; i < 12; i++) {
            if (memory_equal(p + at, 3, date_month_names[i], 3)) {
                date.month = (u8)(i + 1);
                at += 4;
                break;
            }
        }
    }
    if (left() > 2 && p[at + 2] == ' ') {
        date.year = (u16)text_to_i64_plus(p + at, 2);
        at += 3;
    } else if (left() > 3) {
        date.year = (u16)text_to_i64_plus(p + at, 4);
        at += 5;
    } else {
        date.year = 65535;
    }
    if (left() >= 2) {
        date.hour = (u8)text_to_i64_plus(p + at, 2);
        at += 3;
    }
    if (left() >= 2) {
        date.minute = (u8)text_to_i64_plus(p + at, 2);
        at += 2;
    }
    if (left() > 2 && p[at] == ':') {
        date.second = (u8)text_to_i64_plus(p + at + 1, 2);
        at += 4;
    }

    // The zone, told by how much is left.
    i64 hours = 0, minutes = 0;
    i64 n = left();
    if (n >= 1) {
        const u8 *z = p + at;
        if (n == 1 || z[1] == ' ') {
            u8 letter = z[0];
            if (letter >= 'A' && letter <= 'Z') {
                i8 h = date_letter_zone_hours[letter - 'A'];
                hours = h == 127 ? 0 : h;
            }
        } else if (n == 2 || z[2] == ' ') {
            // Two letters: no offset.
        } else if (n != 3 && z[3] != ' ') {
            if (n >= 5) {
                i64 sign = (i64)z[0] - 0x2C; // -1 for "+", +1 for "-"
                hours = sign * text_to_i64(z + 1, 2);
                minutes = sign * text_to_i64(z + 3, 2);
            }
        } else if (memory_equal(z, 3, "GMT", 3)) {
            // No offset.
        } else {
            for (u32 i = 0; i < 8; i++) {
                if (memory_equal(z, 3, date_zone_names[i], 3)) {
                    hours = date_zone_hours[i];
                    break;
                }
            }
        }
    }
    return date_add(date, 0, 0, 0, hours, minutes, 0);
}

date_t date_parse_rfc3339(const data_t *text) {
    date_t date = {};
    const u8 *p = text->bytes;
    u64 size = text->used;
    if (size < 11 || !p) return date;
    date.year = (u16)text_to_i64_plus(p, 4);
    date.month = (u8)text_to_i64_plus(p + 5, 2);
    date.day = (u8)text_to_i64_plus(p + 8, 2);
    u64 at = 11;
    if (size - at >= 8) {
        date.hour = (u8)text_to_i64_plus(p + at, 2);
        date.minute = (u8)text_to_i64_plus(p + at + 3, 2);
        date.second = (u8)text_to_i64_plus(p + at + 6, 2);
    }
    // Fractions of a second and the zone that follow are not read.
    return date;
}

data_t date_to_file_text(date_t date, data_t *destination) {
    u8 *start = data_end(destination);
    data_push_number(destination, date.year, 4, '0', 0);
    data_push_number(destination, date.month, 2, '0', 0);
    data_push_number(destination, date.day, 2, '0', 0);
    data_push_u8(destination, '_');
    data_push_number(destination, date.hour, 2, '0', 0);
    data_push_number(destination, date.minute, 2, '0', 0);
    data_push_number(destination, date.second, 2, '0', 0);
    return data_from_range(start, data_end(destination));
}

date_t date_from_file_text(const data_t *text) {
    date_t none = {};
    const u8 *p = text->bytes;
    if (text->used < 15 || !p) return none;
    for (u32 i = 0; i < 15; i++) {
        bool ok = i == 8 ? p[i] == '_' : char_is_ascii_digit(p[i]);
        if (!ok) return none;
    }
    i64 year = text_to_i64_plus(p, 4);
    i64 month = text_to_i64_plus(p + 4, 2);
    i64 day = text_to_i64_plus(p + 6, 2);
    i64 hour = text_to_i64_plus(p + 9, 2);
    i64 minute = text_to_i64_plus(p + 11, 2);
    i64 second = text_to_i64_plus(p + 13, 2);
    if (month < 1 || month > 12) return none;
    if (day < 1 || day > date_length_of(year, month)) return none;
    if (hour >= 24 || minute >= 60 || second >= 60) return none;
    date_t date = {};
    date.year = (u16)year;
    date.month = (u8)month;
    date.day = (u8)day;
    date.hour = (u8)hour;
    date.minute = (u8)minute;
    date.second = (u8)second;
    return date;
}

date_t date_now() {
    u32 f[6];
    os_utc_now(f);
    date_t date = {};
    date.year = (u16)f[0];
    date.month = (u8)f[1];
    date.day = (u8)f[2];
    date.hour = (u8)f[3];
    date.minute = (u8)f[4];
    date.second = (u8)f[5];
    return date;
}

data_t date_to_string(date_t date, data_t *destination, u32 flags, const data_t *separator) {
    PROFILE_SCOPE(date_to_string);
    u32 fields[6] = {date.year, date.month, date.day, date.hour, date.minute, date.second};
    data_t room = data_view_rest(destination);
    const u8 *sep = separator ? separator->bytes : nullptr;
    u64 sep_size = separator && separator->bytes ? separator->used : 0;
    u64 n = room.bytes ? os_local_time_text(fields, flags, sep, sep_size, room.bytes, room.reserved) : 0;
    u8 *start = data_end(destination);
    destination->used += n;
    return data_from_pointer(start, n);
}
