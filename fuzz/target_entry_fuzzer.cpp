// The values of `target` lines, beside the oracle: which libraries are opened, and what their targets are created with.
// This program plays every library itself.
#include <sorrel/log_target.hpp>
#include <sorrel/log_target_container.hpp>

#include "oracle/value_grammars.hpp"
#include "support/difference.hpp"

#include <cstdint>
#include <dlfcn.h>
#include <mutex>

namespace {

using Parameters = std::map<std::string, std::string>;
// A library that was asked for, and what its factory was given.
using Attempt = std::pair<std::string, std::optional<Parameters>>;

std::vector<Attempt> attempts;

const std::string kUnknownLibrary = "missing";  // a path with this text cannot be opened
const std::string kRefusedParameter = "refuse"; // a factory that is given this name creates nothing
const std::string kAppname = "app";

class Target final : public sorrel::ILogTarget {
public:
    void log(int, int, long long, int, sorrel_level*, const std::string&, const std::string&, const std::string&,
             const std::string&) override {}
    void onComponentAdded(sorrel_component*) override {}
    std::string getName() override { return "fuzzed"; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string&) override {}
};

class Factory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        expectSame("class name", className, std::string("LogTarget"));
        const Parameters& given = dynamic_cast<sorrel::CLogTargetParameters&>(*params).params;
        attempts.back().second = given;
        return given.count(kRefusedParameter) != 0 ? nullptr : new Target;
    }
    void destroyObject(sorrel::IDynamicObject* object) override { delete object; }
};

class Container : public sorrel::CLogTargetContainer {
public:
    Container() : CLogTargetContainer("", false, nullptr) { m_appname = kAppname; }

    std::set<std::string> loaded() const {
        std::set<std::string> paths;
        for (const auto& entry : m_targets) {
            expectSame("seen", static_cast<int>(entry.second.seen), 1);
            paths.insert(entry.first);
        }
        return paths;
    }
};

// What one more line adds to the attempts and to the loaded libraries.
void addExpected(const std::string& value, std::vector<Attempt>& expected, std::set<std::string>& loaded) {
    const oracle::Target target = oracle::target(value, kAppname);
    if (loaded.count(target.library) != 0) {
        return;
    }
    const std::string path = target.library.c_str(); // the loader's view ends at a character of value 0
    expected.emplace_back(path, std::nullopt);
    if (path.find(kUnknownLibrary) != std::string::npos) {
        return;
    }
    expected.back().second = target.parameters;
    if (target.parameters.count(kRefusedParameter) == 0) {
        loaded.insert(target.library);
    }
}

} // namespace

extern "C" sorrel::IClassFactory* getClassFactory() {
    static Factory factory;
    return &factory;
}

extern "C" void* dlopen(const char* path, int mode) noexcept {
    static auto* const real = reinterpret_cast<void* (*)(const char*, int)>(dlsym(RTLD_NEXT, "dlopen"));
    attempts.emplace_back(path, std::nullopt);
    return attempts.back().first.find(kUnknownLibrary) == std::string::npos ? real(nullptr, mode) : nullptr;
}

// Each line is one value.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    attempts.clear();
    Container container;
    const std::lock_guard<Container> guard(container);
    std::vector<Attempt> expected;
    std::set<std::string> expectedLoaded;

    std::string rest(reinterpret_cast<const char*>(data), size);
    while (!rest.empty()) {
        const std::string value = rest.substr(0, rest.find('\n'));
        rest.erase(0, value.size() + 1);
        container.OnCallbackCfRead("target", value);
        addExpected(value, expected, expectedLoaded);
    }
    expectSame("opened libraries and parameters", attempts, expected);
    expectSame("loaded libraries", container.loaded(), expectedLoaded);
    return 0;
}
