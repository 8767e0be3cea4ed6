#include "tool/program.h"

int main(int count, char** arguments) {
    return tool::RunProgram(count, arguments);
}
