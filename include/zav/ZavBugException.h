// The one exception of the library's own.
#pragma once

#include "zav_export.h"

#include <exception>

namespace MIRT_ZAV
{

/// What the library throws when a condition failed, by a bug or by incorrect usage. Which one
/// has been printed on standard output before.
class ZAV_API ZavBugException : public std::exception
{
public:
    ~ZavBugException() override;
    const char* what() const noexcept override;
};

} // namespace MIRT_ZAV
