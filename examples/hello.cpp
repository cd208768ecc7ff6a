#include <sorrel/sorrel.h>

int main() {
    sorrel_level* const quiet = sorrel::sorrel_bitwise_or_collection({SR_ERR, SR_INFO});
    sorrel_component* const net = sorrel_create_component("net", quiet, "8=ERR,64=INFO,128=DEBUG");
    sorrel_init(net, "main");
    _sorrel(net, SR_INFO, "listening on port %d", 8080);
    _sorrel(net, SR_DEBUG, "dropped, since the component is quiet");
    sorrel::sorrel_set_component_level("net", SR_ALL->mask);
    _sorrel(net, SR_DEBUG, "passes");
    sorrel_done(net);
}
