// The daemon's archive tool as a program of its own, to be started as its peers are.
#include "tar/tar_main.h"

int main(int argc, char** argv) {
    return dmd_tar_main(argc, argv) == 1 ? 0 : 1;
}
