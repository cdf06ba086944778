#ifndef DOFRA_API_CLOCK_H
#define DOFRA_API_CLOCK_H

// Monotonic time in seconds; used for timing logs only.
double getTime();

#endif  // DOFRA_API_CLOCK_H
