#include "desktop/VNDesktopApplication.h"

int main(int argc, char** argv) {
    return vn::desktop::VNDesktopApplication::main(argc, argv);
}
