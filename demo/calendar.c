// Dates of the Gregorian calendar.
#include "demo.h"

static const int month_lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

int is_leap_year(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int days_in_month(int year, int month) {
    return month_lengths[month - 1] + (month == 2 && is_leap_year(year));
}

// Days since 1 January of the year 1, which was a Monday.
static long day_number(struct date date) {
    long years = date.year - 1;
    long days = years * 365 + years / 4 - years / 100 + years / 400;
    for (int month = 1; month < date.month; ++month)
        days += days_in_month(date.year, month);
    return days + date.day - 1;
}

int day_of_week(struct date date) {
    return (int)(day_number(date) % 7);
}

struct date add_days(struct date date, int days) {
    date.day += days;
    while (date.day > days_in_month(date.year, date.month)) {
        date.day -= days_in_month(date.year, date.month);
        if (++date.month > 12) {
            date.month = 1;
            ++date.year;
        }
    }
    return date;
}
