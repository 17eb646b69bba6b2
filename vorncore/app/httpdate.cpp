#include "vorncore/app/httpdate.h"

#include <string.h>

#include <chrono>
#include <string_view>

using std::string_view;

namespace {

constexpr char month_names[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
constexpr char weekday_names[] = "SunMonTueWedThuFriSat";

/// Days from 1 March to the first of each month, in a year that begins in March: the leap day comes last.
constexpr int dayoffset[] = {306, 337, 0, 31, 61, 92, 122, 153, 184, 214, 245, 275};

/// UTC as broken down by struct tm: months from 0, years from 1900.
struct fields {
    int second, minute, hour, day, month, year;
};

/// What stands at a fixed position is taken for a digit, whatever it is.
int digit(string_view text, size_t at) { return text[at] - '0'; }
int two_digits(string_view text, size_t at) { return digit(text, at) * 10 + digit(text, at + 1); }
int four_digit_year(string_view text, size_t at) {
    return two_digits(text, at) * 100 + two_digits(text, at + 2) - 1900;
}

template <size_t... at>
bool has(char c, string_view text) {
    return ((text[at] == c) && ...);
}

} // namespace

/// 1 to 12, or -1.
static int __cnvt_month(const char *name) {
    for (int month = 0; month < 12; month++)
        if (memcmp(name, month_names + 3 * month, 3) == 0) return month + 1;
    return -1;
}

static int64_t __timegm(const fields &date) {
    if (date.year < 70) return -1;
    const int64_t y = date.year - (date.month < 2 ? 1 : 0);
    const int64_t days = y * 365 + y / 4 - y / 100 + (y / 100 + 3) / 4 + dayoffset[date.month] + date.day - 1 - 25508;
    const int64_t seconds = ((days * 24 + date.hour) * 60 + date.minute) * 60 + date.second;
    return seconds < 0 ? -1 : seconds;
}

namespace {

/// `month` and `time` are the positions of the month's name and of "HH:MM:SS".
int64_t seconds_of(string_view text, int year, size_t month, int day, size_t time) {
    const int number = __cnvt_month(text.data() + month);
    if (number < 0) return -1;
    return __timegm(
        {two_digits(text, time + 6), two_digits(text, time + 3), two_digits(text, time), day, number - 1, year});
}

int64_t parse_rfc1123(string_view text) {
    if (text.size() != 29 || !has<4, 7, 11, 16, 25>(' ', text) || !has<19, 22>(':', text) || !text.ends_with("GMT"))
        return -1;
    return seconds_of(text, four_digit_year(text, 12), 8, two_digits(text, 5), 17);
}

/// By how much a weekday's name is longer than six letters, told by its first ones; -1 for none.
int excess_of_weekday(string_view text) {
    switch (text[0]) {
    case 'F':
    case 'M': return 0;
    case 'S': return text[1] == 'a' ? 2 : text[1] == 'u' ? 0 : -1;
    case 'T': return text[1] == 'u' ? 1 : text[1] == 'h' ? 2 : -1;
    case 'W': return 3;
    default: return -1;
    }
}

int64_t parse_rfc850(string_view text) {
    const int excess = excess_of_weekday(text);
    if (excess < 0) return -1;
    text.remove_prefix(static_cast<size_t>(excess));
    if (text.size() != 30 || !has<7, 17, 26>(' ', text) || !has<10, 14>('-', text) || !has<20, 23>(':', text) ||
        !text.ends_with("GMT"))
        return -1;
    return seconds_of(text, two_digits(text, 15), 11, two_digits(text, 8), 18);
}

int64_t parse_asctime(string_view text) {
    if (text.size() == 24 && text[9] != ' ') {
        if (!has<7, 19>(' ', text) || !has<13, 16>(':', text)) return -1;
        return seconds_of(text, four_digit_year(text, 20), 4, two_digits(text, 8), 11);
    }
    if (text.size() == 23 && text[9] == ' ') {
        if (!has<7, 18>(' ', text) || !has<12, 15>(':', text)) return -1;
        return seconds_of(text, four_digit_year(text, 19), 4, digit(text, 8), 10);
    }
    return -1;
}

/// Appends pieces of text and numbers padded with zeros.
class writer {
  public:
    explicit writer(char *out) : out_(out) {}
    writer &name(const char *names, unsigned index) { return text({names + size_t{3} * index, 3}); }
    writer &text(string_view piece) {
        memcpy(out_, piece.data(), piece.size());
        out_ += piece.size();
        return *this;
    }
    writer &number(unsigned value, int places) {
        for (int i = places; i-- > 0; value /= 10) out_[i] = static_cast<char>('0' + value % 10);
        out_ += places;
        return *this;
    }

  private:
    char *out_;
};

} // namespace

int64_t xp_parse_http_date(const char *text) {
    const string_view date(text);
    if (date.size() < 4) return -1;
    switch (date[3]) {
    case ' ': return parse_asctime(date);
    case ',': return parse_rfc1123(date);
    default: return parse_rfc850(date);
    }
}

char *xp_make_http_date(int64_t seconds, char *buffer) {
    using namespace std::chrono;
    constexpr sys_days first = year(-999) / January / 1, end = year(10000) / January / 1;
    *buffer = '\0';
    if (seconds < sys_seconds(first).time_since_epoch().count() ||
        seconds >= sys_seconds(end).time_since_epoch().count())
        return buffer;

    const sys_seconds time{std::chrono::seconds(seconds)};
    const sys_days day = floor<days>(time);
    const year_month_day date(day);
    const int year = static_cast<int>(date.year());
    const auto of_day = static_cast<unsigned>((time - day).count());
    writer out(buffer);
    out.name(weekday_names, weekday(day).c_encoding()).text(", ").number(static_cast<unsigned>(date.day()), 2);
    out.text(" ").name(month_names, static_cast<unsigned>(date.month()) - 1);
    if (year < 0)
        out.text(" -").number(static_cast<unsigned>(-year), 3);
    else
        out.text(" ").number(static_cast<unsigned>(year), 4);
    out.text(" ").number(of_day / 3600, 2).text(":").number(of_day / 60 % 60, 2).text(":").number(of_day % 60, 2);
    out.text(" GMT").text(string_view("\0", 1));
    return buffer;
}
