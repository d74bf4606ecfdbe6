// The one exception of the library's own.
#pragma once

#include "zav_export.h"

#include <exception>

namespace MIRT_ZAV
{

/// Thrown when a condition failed inside of the library, by a bug or by a call that breaks a rule. Standard output has
/// said by then which condition it was and where; the text here is always the same.
class ZAV_API ZavBugException : public std::exception
{
public:
    ~ZavBugException() override;
    const char* what() const noexcept override;
};

} // namespace MIRT_ZAV
