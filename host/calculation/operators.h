// What the operators of calculations do with values.
#pragma once

#include "host/calculation/syntax.h"
#include "host/value.h"

#include <compare>

namespace fmxhost {

// The result of a binary operator, `logicalAnd` and `logicalOr` without their short cut.
// Errors: CalculationError at `place` for what has no result.
Value apply(Operator operation, const Value& left, const Value& right, Span place);

Value negated(const Value& value);

// How two values compare, see Evaluator::evaluate.
std::weak_ordering compare(const Value& left, const Value& right);

} // namespace fmxhost
