/* HTTP dates: the three forms that HTTP/1.1 allows, to seconds and back.
 *
 * Written for speed on the dates that servers send. A reader checks the length of a form and the marks between its
 * numbers and takes every field from its fixed position as it stands: digits are not validated, so a text that is no
 * date may still give a number, but nothing behind the end of the text is ever read.
 *
 * Threads: nothing is shared. */
#ifndef VORNCORE_APP_HTTPDATE_H
#define VORNCORE_APP_HTTPDATE_H

#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* Seconds since 1970-01-01 00:00:00 UTC, or -1 for what is no date and for every date before that second. The fourth
 * character tells the forms apart; names of months are "Jan" to "Dec" in just this case, weekdays are not compared with
 * the date.
 *
 *     Sun, 06 Nov 1994 08:49:37 GMT      "," fourth: exactly 29 characters
 *     Sunday, 06-Nov-94 08:49:37 GMT     any other; told by its first letters. Years 00 to 69 give -1: they are 19xx
 *     Sun Nov 06 08:49:37 1994           " " fourth: exactly 24 characters, 23 when the day has one digit
 *
 * Kept for callers: a day padded with a blank ("Nov  6") has 24 characters, and its blank counts as a digit, which
 * gives a date 160 days too early. */
int64_t xp_parse_http_date(const char *text);

/* Writes the first form. `buffer` has room for 30 bytes; returns `buffer`. The form has four places for the year: of a
 * time outside the years -999 to 9999 the text is empty. */
char *xp_make_http_date(int64_t seconds, char *buffer);

VORNCORE_END_DECLS

#endif
