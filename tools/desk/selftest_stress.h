#pragma once

namespace corvalint::desk {

// Opens, uses and closes an input, an output and ports on six threads at once for so long. Answers
// how often; what went wrong is heard.
long long Stress(unsigned long long milliseconds);

}  // namespace corvalint::desk
