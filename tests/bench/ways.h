#pragma once

namespace corvalint::bench {

// The groups of measures. Each runs in a process of its own, since the library starts once and
// stays, and tells its results on standard output.

void MeasureReceiving();
void MeasureInput();
void MeasureLatency();
void MeasureScale();
void MeasureIdleMinute();
void MeasureMemory();

}  // namespace corvalint::bench
