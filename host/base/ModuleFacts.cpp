#include "host/base/ModuleFacts.h"

namespace module_facts {

namespace {

constexpr int64_t LIFETIME_FINAL = 15 * 24 * 3600;
constexpr int64_t LIFETIME_OPEN = 20 * 60;

}  // namespace

int64_t Lifetime(int nLevel) {
    switch (nLevel) {
        case 10:
        case 20:
        case 70:
            return LIFETIME_FINAL;
        case 30:
        case 40:
        case 50:
            return LIFETIME_OPEN;
        default:
            return 0;
    }
}

}  // namespace module_facts
