// dates.cpp - feed dates (RFC 822, and ISO 8601 as RFC 3339 profiles it)
// read into one UTC record, date arithmetic, file-name stamps and local date
// text.
//
// The readers never fail: a text that no form reads gives no date. One odd
// result of the arithmetic is kept on purpose because stored data depends on
// it: the forward day walk of date_add runs one day ahead at a month's end.
// The readers apply zones with a walk of their own.
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

// ---- reading dates ----------------------------------------------------------------------------
// A date is read whole or not at all: a text that no form reads gives no
// date (all zero), never a guess from bytes at fixed places. The zone is
// applied, so that every date read is UTC.

struct date_reader_t {
    const u8 *p;
    const u8 *end;
};

struct date_fields_t {
    i64 year, month, day, hour, minute, second;
    i64 zone_minutes; // east of UTC
};

static bool date_at_end(const date_reader_t *r) { return r->p >= r->end; }

static void date_skip_spaces(date_reader_t *r) {
    while (r->p < r->end && char_is_space(*r->p)) r->p++;
}

static bool date_take(date_reader_t *r, u8 c) {
    if (r->p >= r->end || *r->p != c) return false;
    r->p++;
    return true;
}

static bool date_next_is_digit(const date_reader_t *r) { return r->p < r->end && char_is_ascii_digit(*r->p); }

// A number of `least` to `most` digits; false, with nothing read, for any
// other count.
static bool date_digits(date_reader_t *r, u32 least, u32 most, i64 *value) {
    const u8 *p = r->p;
    i64 v = 0;
    u32 n = 0;
    while (p < r->end && n <= most && char_is_ascii_digit(*p)) v = v * 10 + (*p++ - '0'), n++;
    if (n < least || n > most) return false;
    r->p = p;
    *value = v;
    return true;
}

static data_t date_word(date_reader_t *r) {
    const u8 *start = r->p;
    while (r->p < r->end && char_is_ascii_alpha(*r->p)) r->p++;
    return data_from_range(start, r->p);
}

static bool date_word_is(data_t word, const char *name) {
    u64 n = string_length(name);
    if (word.used != n) return false;
    for (u64 i = 0; i < n; i++) {
        if ((word.bytes[i] | 0x20) != (name[i] | 0x20)) return false;
    }
    return true;
}

// The place of a day or month name in its table, known by its first three
// letters in any case ("Tue", "TUESDAY", "Sept"); -1 for any other word.
static i32 date_name_index(data_t word, const char (*names)[4], u32 count) {
    if (word.used < 3 || word.used > 9) return -1;
    for (u32 i = 0; i < count; i++) {
        if (date_word_is(data_from_pointer(word.bytes, 3), names[i])) return (i32)i;
    }
    return -1;
}

// A zone as minutes east of UTC: "+hhmm", "+hh:mm" or "+hh" (and "-"),
// "Z", "UT", "UTC", "GMT", the American names ("EST" to "PDT") and the
// military letters. A name of letters not known is read as UTC, as a
// zone that says nothing. False for what is no zone, or an offset past a day.
static bool date_zone(date_reader_t *r, i64 *minutes) {
    if (r->p < r->end && (*r->p == '+' || *r->p == '-')) {
        i64 sign = *r->p++ == '-' ? -1 : 1;
        i64 hours = 0, rest = 0;
        if (date_digits(r, 4, 4, &hours)) {
            rest = hours % 100;
            hours /= 100;
        } else if (!date_digits(r, 2, 2, &hours) || (date_take(r, ':') && !date_digits(r, 2, 2, &rest))) {
            return false;
        }
        if (hours > 23 || rest > 59) return false;
        *minutes = sign * (hours * 60 + rest);
        return true;
    }
    data_t word = date_word(r);
    *minutes = 0;
    if (word.used == 0) return false;
    if (word.used == 1) {
        u8 letter = word.bytes[0] & ~0x20;
        i8 hours = date_letter_zone_hours[letter - 'A'];
        if (hours != 127) *minutes = -60 * hours;
        return true;
    }
    if (word.used == 3 && (word.bytes[2] | 0x20) == 't') {
        for (u32 i = 0; i < 8; i++) {
            if (date_word_is(data_from_pointer(word.bytes, 2), (const char *)date_zone_names[i]))
                *minutes = -60 * date_zone_hours[i];
        }
    }
    return true;
}

// A zone, if anything but spaces and a comment in parentheses ("(PST)") is
// left; then nothing else may follow.
static bool date_rest_is_zone(date_reader_t *r, i64 *minutes) {
    date_skip_spaces(r);
    if (!date_at_end(r) && *r->p != '(') {
        if (!date_zone(r, minutes)) return false;
        date_skip_spaces(r);
    }
    return date_at_end(r) || *r->p == '(';
}

// The fields checked and moved to UTC by the zone; no date when any field is
// out of range. A leap second counts as the second before it.
static date_t date_from_fields(const date_fields_t *f) {
    if (f->year > 65535 || f->month < 1 || f->month > 12 || f->day < 1) return date_t{};
    if (f->day > date_length_of(f->year, f->month) || f->hour > 23 || f->minute > 59 || f->second > 60)
        return date_t{};
    i64 year = f->year, month = f->month, day = f->day;
    // Zones are less than a day away: at most one day to step.
    i64 minutes = f->hour * 60 + f->minute - f->zone_minutes;
    if (minutes < 0) {
        minutes += 24 * 60;
        if (--day < 1) {
            if (--month < 1) month = 12, year--;
            day = date_length_of(year, month);
        }
    } else if (minutes >= 24 * 60) {
        minutes -= 24 * 60;
        if (++day > date_length_of(year, month)) {
            day = 1;
            if (++month > 12) month = 1, year++;
        }
    }
    if (year < 0 || year > 65535) return date_t{};
    date_t date = {};
    date.year = (u16)year;
    date.month = (u8)month;
    date.day = (u8)day;
    date.hour = (u8)(minutes / 60);
    date.minute = (u8)(minutes % 60);
    date.second = (u8)(f->second == 60 ? 59 : f->second);
    return date;
}

date_t date_parse_rfc822(const data_t *text) {
    if (!text->bytes) return date_t{};
    date_reader_t r = {text->bytes, text->bytes + text->used};
    date_fields_t f = {};
    date_skip_spaces(&r);
    if (r.p < r.end && char_is_ascii_alpha(*r.p)) { // the day of the week is optional
        if (date_name_index(date_word(&r), date_day_names, 7) < 0) return date_t{};
        date_skip_spaces(&r);
        date_take(&r, ',');
        date_skip_spaces(&r);
    }
    if (!date_digits(&r, 1, 2, &f.day)) return date_t{};
    date_skip_spaces(&r);
    date_take(&r, '-'); // "02-Jan-2006" as well
    date_skip_spaces(&r);
    i32 month = date_name_index(date_word(&r), date_month_names, 12);
    if (month < 0) return date_t{};
    f.month = month + 1;
    date_skip_spaces(&r);
    date_take(&r, '-');
    date_skip_spaces(&r);
    // A year of two digits stays as written.
    if (!date_digits(&r, 4, 4, &f.year) && !date_digits(&r, 2, 2, &f.year)) return date_t{};
    date_skip_spaces(&r);
    if (date_next_is_digit(&r)) { // the time is optional, its seconds too
        if (!date_digits(&r, 1, 2, &f.hour) || !date_take(&r, ':') || !date_digits(&r, 2, 2, &f.minute))
            return date_t{};
        if (date_take(&r, ':') && !date_digits(&r, 2, 2, &f.second)) return date_t{};
        if (!date_rest_is_zone(&r, &f.zone_minutes)) return date_t{};
    }
    date_skip_spaces(&r);
    if (!date_at_end(&r) && *r.p != '(') return date_t{};
    return date_from_fields(&f);
}

date_t date_parse_rfc3339(const data_t *text) {
    if (!text->bytes) return date_t{};
    date_reader_t r = {text->bytes, text->bytes + text->used};
    date_fields_t f = {};
    date_skip_spaces(&r);
    if (!date_digits(&r, 4, 4, &f.year) || !date_take(&r, '-') || !date_digits(&r, 2, 2, &f.month) ||
        !date_take(&r, '-') || !date_digits(&r, 2, 2, &f.day))
        return date_t{};
    // The time is optional; "T" or a space before it.
    if (r.end - r.p >= 2 && (r.p[0] == 'T' || r.p[0] == 't' || r.p[0] == ' ') && char_is_ascii_digit(r.p[1])) {
        r.p++;
        if (!date_digits(&r, 2, 2, &f.hour) || !date_take(&r, ':') || !date_digits(&r, 2, 2, &f.minute))
            return date_t{};
        if (date_take(&r, ':')) {
            if (!date_digits(&r, 2, 2, &f.second)) return date_t{};
            if (date_take(&r, '.') || date_take(&r, ',')) { // fractions of a second are dropped
                if (!date_next_is_digit(&r)) return date_t{};
                while (date_next_is_digit(&r)) r.p++;
            }
        }
        if (!date_rest_is_zone(&r, &f.zone_minutes)) return date_t{};
    }
    date_skip_spaces(&r);
    if (!date_at_end(&r)) return date_t{};
    return date_from_fields(&f);
}

date_t date_parse_feed(const data_t *text) {
    date_t date = date_parse_rfc3339(text);
    return date_is_empty(&date) ? date_parse_rfc822(text) : date;
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
