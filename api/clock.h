#ifndef DOFRA_API_CLOCK_H
#define DOFRA_API_CLOCK_H

// Monotonic time in seconds; used for timing logs only.
double getTime();

// A timing point: where a stage of the specified pipeline ends, the clock is
// read and the value dropped. Nothing is logged; the reads stay so that every
// stage costs and orders as specified.
inline void TimingPoint() { (void)getTime(); }

#endif  // DOFRA_API_CLOCK_H
