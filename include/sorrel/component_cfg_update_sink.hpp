// The one way in which a log-target container reaches back into the logger that owns it.
#ifndef SORREL_COMPONENT_CFG_UPDATE_SINK_HPP
#define SORREL_COMPONENT_CFG_UPDATE_SINK_HPP

#include <string>

namespace sorrel {

class __attribute__((visibility("default"))) IComponentCfgUpdateSink {
public:
    // Sets the level mask of the component `name`, creating it where it does not exist. `level` is a binary number,
    // most significant bit first: '1' is a set bit, every other character a clear one, and the last 32 count.
    //
    // Called during a re-read of the configuration, on the re-reading thread, with the container's mutex held. Returns
    // 0 on success; any other result is only written to the diagnostic channel.
    virtual int updateComponentLevel(const std::string& name, const std::string& level) = 0;

protected:
    // Not virtual, and nobody deletes through this interface: a virtual destructor would take the first slot.
    ~IComponentCfgUpdateSink() = default;
};

} // namespace sorrel

#endif // SORREL_COMPONENT_CFG_UPDATE_SINK_HPP
