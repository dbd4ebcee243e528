// Prints a capture, a line for each frame. Exit code 1 when it is not whole.
#include "tests/support/UrbText.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

int main(int argc, char** argv)
{
    using namespace Vantor;
    if (argc != 2) {
        std::fprintf(stderr, "usage: captureLines FILE\n");
        return EXIT_FAILURE;
    }
    bool isWhole = true;
    try {
        CaptureReader reader(argv[1]);
        while (const auto urb = reader.next()) {
            isWhole = isWhole && urb->flaw == CapturedUrb::Flaw::None;
            std::printf("%s\n", textOf(*urb).c_str());
        }
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "captureLines: %s: %s\n", argv[1], error.what());
        return EXIT_FAILURE;
    }
    return isWhole ? EXIT_SUCCESS : EXIT_FAILURE;
}
