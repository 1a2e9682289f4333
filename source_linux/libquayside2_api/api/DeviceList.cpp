#include "api/DeviceList.h"

#include <algorithm>
#include <cstdlib>

#include "netif/NetifBackend.h"
#include "segment/SegmentBackend.h"

namespace quayside2 {

namespace {

std::string_view Trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

} // namespace

DeviceInstances SelectByName(const DeviceInstances& instances, std::string_view names) {
    if (names.empty()) {
        return instances;
    }
    DeviceInstances selected;
    while (!names.empty()) {
        const auto comma = names.find(',');
        const std::string_view name = Trimmed(names.substr(0, comma));
        names.remove_prefix(comma == std::string_view::npos ? names.size() : comma + 1);
        const auto found = std::find_if(instances.begin(), instances.end(), [name](const auto& instance) {
            return instance->Properties().friendlyName == name;
        });
        if (found != instances.end() &&
            std::find(selected.begin(), selected.end(), *found) == selected.end()) {
            selected.push_back(*found);
        }
    }
    return selected;
}

KESTATUS ListDevices(DeviceInstances& instances) {
    DeviceInstances all;
    KESTATUS st = segment::SegmentBackend().Enumerate(all);
    if (st == KESTATUS_SUCCESS) {
        st = netif::NetifBackend().Enumerate(all);
    }
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    const char* names = std::getenv("QUAYSIDE2_DEVICES");
    instances = SelectByName(all, names ? std::string_view(names) : std::string_view());
    return KESTATUS_SUCCESS;
}

} // namespace quayside2
