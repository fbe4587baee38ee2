// Dates and months as text.
#include <stdio.h>

#include "demo.h"

static const char* const day_names[7] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

void print_date(const char* what, struct date date) {
    printf("%s: %s %04d-%02d-%02d\n", what, day_names[day_of_week(date)], date.year, date.month,
           date.day);
}

void print_month(int year, int month) {
    struct date first = {year, month, 1};
    int column = day_of_week(first);
    for (int i = 0; i < 7; ++i)
        printf("%4s", day_names[i]);
    printf("\n%*s", 4 * column, "");
    for (int day = 1; day <= days_in_month(year, month); ++day) {
        printf("%4d", day);
        if (++column % 7 == 0)
            printf("\n");
    }
    printf("\n");
}
