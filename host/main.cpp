#include "host/HostMain.h"

int main(int argc, char** argv) {
    return HostMain(argc, argv);
}
