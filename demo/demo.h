// A small calendar: what the demonstration builds, strips and runs.
#ifndef DEMO_H
#define DEMO_H

struct date {
    int year;
    int month; // from 1
    int day;   // from 1
};

// calendar.c
int is_leap_year(int year);
int days_in_month(int year, int month);
int day_of_week(struct date date); // 0 is Monday
struct date add_days(struct date date, int days);

// print.c
void print_date(const char* what, struct date date);
void print_month(int year, int month);

#endif
