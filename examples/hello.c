#include <sorrel/sorrel.h>

int main(void) {
    sorrel_component* net = sorrel_create_component("net", SR_INFO, "8=ERR,64=INFO,128=DEBUG");
    sorrel_init(net, "main");
    sorrel_enter_function(net, "main");
    _sorrel(net, SR_INFO, "listening on port %d", 8080);
    _sorrel(net, SR_DEBUG, "dropped, until the configuration lets debug messages pass");
    sorrel_leave_function(net);
    sorrel_done(net);
    return 0;
}
