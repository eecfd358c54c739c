#include "host/run/VerdictLists.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/verdict/HashListSource.h"
#include "host/verdict/PackageSource.h"
#include "host/verdict/VerdictLevel.h"

namespace verdict_lists {

namespace {

// The sources make their texts safe themselves.
void Say(Console& output, const std::string& strText) {
    if (!strText.empty()) {
        output.Error("tevmon-host: " + strText);
    }
}

bool LoadLists(const std::vector<std::string>& files, int nLevel, VerdictService& service,
               Console& output) {
    for (const std::string& strFile : files) {
        std::string strError;
        std::unique_ptr<HashListSource> pList = HashListSource::Load(strFile, nLevel, strError);
        Say(output, pList == nullptr ? strError : pList->Note());
        if (pList == nullptr) {
            return false;
        }
        service.AddSource(std::move(pList));
    }
    return true;
}

}  // namespace

bool Load(const RunOptions& options, VerdictService& service, Console& output) {
    if (!LoadLists(options.badLists, verdict_level::BAD, service, output) ||
        !LoadLists(options.goodLists, verdict_level::GOOD, service, output)) {
        return false;
    }
    if (options.bPackages) {
        std::unique_ptr<PackageSource> pPackages = PackageSource::Load();
        Say(output, pPackages->Note());
        service.AddSource(std::move(pPackages));
    }
    return true;
}

}  // namespace verdict_lists
