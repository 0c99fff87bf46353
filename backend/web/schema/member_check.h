#pragma once

#include <string>

#include "backend/base/value.h"
#include "backend/web/schema/member_rule.h"

namespace weir {

/// Whether the value means the default: null, or a text of blanks.
bool is_blank(const Value& value);

/// Why the value can't be that of the member, without looking at what is below it; empty when it can. A blank value
/// can be that of every member.
std::string find_member_fault(const MemberRule& rule, const Value& value);

/// Stores a value without a fault in the form that its readers take: a number as a text of digits, for example.
void convert_member(const MemberRule& rule, Value& value);

}  // namespace weir
