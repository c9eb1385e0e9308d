#pragma once

#include <frameloom/platform/ZiploomExport.h>

#include <string>

namespace frameloom::platform {

// Whether a whole number is written bare ("2") or with one decimal place ("2.0").
enum class WholeNumbers { bare, withPoint };

// The shortest decimal digits that read back as the same value of the number's own type, written
// positionally: 100000 and 0.0001, never 1e+05 or 1e-04. Infinities and not-a-number are written
// "inf", "-inf" and "nan". Pure functions; throw only std::bad_alloc.
FRAMELOOM_ZIPLOOM_EXPORT std::string shortestDecimal(double value,
                                                     WholeNumbers whole = WholeNumbers::bare);
FRAMELOOM_ZIPLOOM_EXPORT std::string shortestDecimal(float value,
                                                     WholeNumbers whole = WholeNumbers::bare);

} // namespace frameloom::platform
