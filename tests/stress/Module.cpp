#include "tests/stress/Module.h"

const char* ModuleLibrary() {
    return TEVMON_LIBRARY;
}
