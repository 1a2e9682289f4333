#include "program/Program.h"

int main(int argc, char** argv) {
    return flowlane::RunProgram(argc, argv);
}
