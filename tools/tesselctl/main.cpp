#include "tesselctl/Tool.h"

int main(int argc, char** argv) {
    return tesselctl::RunTool(std::vector<std::string>(argv + 1, argv + argc));
}
