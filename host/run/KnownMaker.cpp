#include "host/run/KnownMaker.h"

#include "host/database/DatabaseProbe.h"
#include "host/verdict/ProgramVerdicts.h"
#include "host/verdict/VerdictLevel.h"

EventLedger::KnownMaker MakeKnownMaker(const VerdictService& service,
                                       const std::string& strCacheFile) {
    return [&service, strCacheFile](const std::string& strProgram) {
        const std::string strKey = ProgramVerdicts::KeyOf(strProgram);
        return !strKey.empty() &&
               verdict_level::ClassOf(service.Decide(strKey).nLevel) == verdict_level::CLASS_GOOD &&
               database_probe::HasVerdict(strCacheFile, strKey).value_or(false);
    };
}
