// Prints a month and some dates; its output is what stripping must not change.
#include "demo.h"

int main(void) {
    struct date release = {2024, 2, 14};
    print_month(release.year, release.month);
    print_date("released", release);
    print_date("support ends", add_days(release, 1000));
    return 0;
}
