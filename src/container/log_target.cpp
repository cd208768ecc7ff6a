// What the library itself holds of the plug-in contract: the anchors of its classes and its two names.
#include <sorrel/log_target.hpp>

namespace sorrel {

const std::string ILogTarget::LOG_TARGET_CLASS_NAME = "LogTarget";

IDynamicObject::~IDynamicObject() = default;
IDynamicObjectCreationParams::~IDynamicObjectCreationParams() = default;

CLogTargetParameters::CLogTargetParameters() = default;
CLogTargetParameters::~CLogTargetParameters() = default;

ILogTarget::~ILogTarget() = default;

const std::string& TARGET_TOKEN_APPLICATION_NAME() {
    static const std::string& token = *new std::string("application-name"); // a worker may outlive the static objects
    return token;
}

} // namespace sorrel
