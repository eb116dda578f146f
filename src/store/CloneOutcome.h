#pragma once

#include "store/CloneMethod.h"

namespace vosklin {

struct CloneOutcome {
    CloneMethod method = CloneMethod::unknown;
    double elapsed = 0;  // seconds the copy itself took
};

}  // namespace vosklin
