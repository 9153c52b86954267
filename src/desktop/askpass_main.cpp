#include "desktop/VNPasswordDialog.h"

int main(int argc, char** argv) {
    return vn::desktop::askPasswordMain(argc, argv);
}
