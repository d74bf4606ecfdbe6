// The one export macro: what carries it leaves the shared library, everything else stays hidden.
#pragma once

#define ZAV_API __attribute__((visibility("default")))
