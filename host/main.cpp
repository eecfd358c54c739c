#include "host/command/HostMain.h"

int main(int argc, char** argv) {
    return HostMain(argc, argv);
}
