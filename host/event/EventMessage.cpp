#include "host/event/EventMessage.h"

#include "host/base/HumanText.h"
#include "host/base/JsonReader.h"
#include "host/base/JsonWriter.h"
#include "host/base/ModuleFacts.h"
#include "host/base/MountTable.h"

namespace event_message {

namespace {

// The module stores a message once for each tagged element, whatever the queue's bound.
constexpr uint64_t MOST_STORED = 512 << 20;

}  // namespace

bool IsUsable(const std::string& strBody, uint64_t& nCopies, uint64_t& nEvents,
              std::string& strReason) {
    nCopies = 0;
    nEvents = 0;
    Json::Value jsonRoot;
    if (!json_reader::Parse(strBody, jsonRoot)) {
        strReason = "not a JSON text";
        return false;
    }
    if (!jsonRoot.isObject()) {
        strReason = "not a JSON object";
        return false;
    }
    const Json::Value* const pParam = json_reader::Member(jsonRoot, "param");
    if (pParam == nullptr || !pParam->isArray()) {
        strReason = "no array \"param\"";
        return false;
    }
    for (const Json::Value& jsonElement : *pParam) {
        const std::string strContext = json_reader::Text(jsonElement, module_facts::MEMBER_CONTEXT);
        const bool bKnown = strContext == module_facts::CONTEXT_LAUNCHES ||
                            strContext == module_facts::CONTEXT_FILES;
        nCopies += bKnown && json_reader::Text(jsonElement, module_facts::MEMBER_GROUP) ==
                                 module_facts::GROUP_QUERY
                       ? 1
                       : 0;
    }
    if (nCopies == 0) {
        strReason = std::string("no element with \"") + module_facts::MEMBER_GROUP + "\" \"" +
                    module_facts::GROUP_QUERY + "\" and a known \"" + module_facts::MEMBER_CONTEXT +
                    "\"";
        return false;
    }
    nEvents = nCopies * pParam->size();
    if (nCopies > 1 && nCopies * strBody.size() > MOST_STORED) {
        strReason = "would be stored " + std::to_string(nCopies) + " times, " +
                    text::Bytes(nCopies * strBody.size()) + " in all";
        nCopies = 0;
        nEvents = 0;
        return false;
    }
    return true;
}

std::string ProcessCreations(const std::vector<std::string>& paths) {
    std::vector<Creation> creations;
    creations.reserve(paths.size());
    for (const std::string& strPath : paths) {
        creations.push_back({strPath, strPath});
    }
    return CreationsOf(creations);
}

std::string CreationsOf(const std::vector<Creation>& creations) {
    std::string strElements;
    for (const Creation& creation : creations) {
        JsonObject element;
        if (strElements.empty()) {
            element.Add(module_facts::MEMBER_GROUP, module_facts::GROUP_QUERY);
            element.Add(module_facts::MEMBER_CONTEXT, module_facts::CONTEXT_LAUNCHES);
        }
        element.AddJson("path", json_writer::Quote(creation.strPath, json_writer::BAD_BYTES_KEEP));
        element.AddJson("cmd",
                        json_writer::Quote(creation.strCommand, json_writer::BAD_BYTES_KEEP));
        element.Add("pid", static_cast<uint64_t>(creation.nPid));
        if (!creation.strVersion.empty()) {
            element.Add(MEMBER_VERSION, creation.strVersion);
        }
        strElements += (strElements.empty() ? "" : ",") + element.Text();
    }
    return strElements.empty() ? "" : "{\"param\":[" + strElements + "]}";
}

const char* OperationWord(FileAct eAct) {
    static const char* const WORDS[] = {
        module_facts::OPERATION_CREATE, module_facts::OPERATION_WRITE,
        module_facts::OPERATION_RENAME, module_facts::OPERATION_REMOVE};
    return WORDS[eAct];
}

std::string OperationsOf(const std::vector<FileOperation>& operations) {
    std::string strElements;
    for (const FileOperation& operation : operations) {
        JsonObject element;
        if (strElements.empty()) {
            element.Add(module_facts::MEMBER_GROUP, module_facts::GROUP_QUERY);
            element.Add(module_facts::MEMBER_CONTEXT, module_facts::CONTEXT_FILES);
        }
        element.AddJson("path", json_writer::Quote(operation.strPath, json_writer::BAD_BYTES_KEEP));
        element.Add(module_facts::MEMBER_OPERATION, OperationWord(operation.eAct));
        element.AddJson(module_facts::MEMBER_PROGRAM,
                        json_writer::Quote(operation.strProgram, json_writer::BAD_BYTES_KEEP));
        element.Add("exe_pid", static_cast<uint64_t>(operation.nPid));
        // The module reads 32 bits with a sign.
        element.Add("ino", operation.nInode <= INT32_MAX ? operation.nInode : uint64_t{0});
        element.Add("disk_type", mount_table::DiskType(operation.strFsType));
        element.Add("fs_type", operation.strFsType).Add("result", "0");
        element.Add("time", operation.tmWhen);
        strElements += (strElements.empty() ? "" : ",") + element.Text();
    }
    return strElements.empty() ? "" : "{\"param\":[" + strElements + "]}";
}

}  // namespace event_message
