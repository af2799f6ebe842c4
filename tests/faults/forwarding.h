#pragma once

#include <type_traits>

#include "fault_plan.h"

namespace corvalint::faults {

// The table that was in force before.
template <class Api>
Api under;

// The function's own answer, or `failure` when this call has to fail.
template <class Result, class... Parameters>
Result Forward(Table table, const char* function, Result (*real)(Parameters...),
               std::type_identity_t<Result> failure,
               std::type_identity_t<Parameters>... arguments) {
  if (Fails(table, function)) return failure;
  const OutsideScope outside;
  return real(arguments...);
}

}  // namespace corvalint::faults

// A function of a table that does nothing and answers `failure` when it fails. The second one has a
// name of its own for reports, where two tables have a function of the same name.
#define CORVALINT_FAILS_WITH(table, Api, name, failure) \
  CORVALINT_FAILS_NAMED(table, Api, name, #name, failure)
#define CORVALINT_FAILS_NAMED(table, Api, name, shown, failure)                             \
  .name = [](auto... arguments) {                                                           \
    return ::corvalint::faults::Forward(table, shown, ::corvalint::faults::under<Api>.name, \
                                        failure, arguments...);                             \
  }
