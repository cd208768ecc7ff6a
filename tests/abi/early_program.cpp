// Uses a library that has logged before main was entered.
#include <sorrel/sorrel.h>

extern "C" sorrel_component* earlyComponent();

int main() {
    _sorrel(earlyComponent(), SR_INFO, "from main");
    return 0;
}
