#include "tevmon/core/CTevChennalDB.h"

#include <string_view>
#include <utility>

#include "framework/base/Base64Util.h"
#include "framework/base/CStr.h"

namespace {

constexpr char DATABASE_FILE[] = "../data/db/tevchennaldb.db";
constexpr char TABLE[] = "msgchennal";
constexpr char CREATE_TABLE[] =
    "create table msgchennal( id INTEGER PRIMARY KEY autoincrement , createtime TEXT, detail TEXT, "
    "mid INTEGER)";

std::string FetchStatement(int nCount) {
    return "select * from msgchennal limit 0," + std::to_string(nCount);
}

void ReadRows(CppSQLite3DB& db, const std::string& strStatement,
              std::list<ChennalRecord>& recordList) {
    // Finalized by its destructor: before the commit, and when a row cannot be read.
    CppSQLite3Query query = db.execOwnQuery(strStatement.c_str());
    for (; !query.eof(); query.nextRow()) {
        ChennalRecord record;
        record.id = query.getInt64Field("id");
        const std::string_view detail = query.getTextField("detail");
        record.detail = Base64Util::Base64Decode(detail.data(), detail.size());
        record.createtime = query.getIntField("createtime");
        record.mid = query.getIntField("mid");
        recordList.push_back(std::move(record));
    }
}

}  // namespace

CTevChennalDB::CTevChennalDB()
    : CTevStore(DATABASE_FILE, TABLE, CREATE_TABLE),
      m_strInsertPrefix("insert into msgchennal(createtime,detail,mid) values") {
    (void)Open();  // it has printed; later operations fail and say so
}

int CTevChennalDB::Insert(const ChennalRecord& record) {
    const CCall call(*this);
    return Change([&] {
        // Base64 keeps a quote inside the message from ending the SQL literal early.
        std::string strStatement;
        strStatement.reserve(m_strInsertPrefix.size() + record.detail.size() / 3 * 4 + 64);
        strStatement += m_strInsertPrefix;
        strStatement += "('";
        strStatement += std::to_string(record.createtime);
        strStatement += "','";
        Base64Util::Base64Append(strStatement, record.detail);
        strStatement += "',";
        strStatement += std::to_string(record.mid);
        strStatement += ')';
        return strStatement;
    });
}

int CTevChennalDB::Fetch(std::list<ChennalRecord>& recordList, int nCount) {
    const CCall call(*this);
    recordList.clear();
    const int nResult = WithoutTransaction([&] { return FetchStatement(nCount); },
                                           [&](CppSQLite3DB& db, const std::string& strStatement) {
                                               ReadRows(db, strStatement, recordList);
                                           });
    if (nResult != 0) {
        recordList.clear();
    }
    return nResult;
}

int CTevChennalDB::FetchAndRemove(std::list<ChennalRecord>& recordList, int nCount) {
    const CCall call(*this);
    recordList.clear();
    const int nResult = InTransaction(
        [&] { return FetchStatement(nCount); },
        [&](CppSQLite3DB& db, const std::string& strStatement) {
            ReadRows(db, strStatement, recordList);
            const std::string strDelete = CStr::stdformat(
                "delete from msgchennal where id  in(select id from msgchennal limit %d)",
                static_cast<int>(recordList.size()));
            (void)db.execDML(strDelete.c_str());
        });
    if (nResult != 0) {
        recordList.clear();
    }
    return nResult;
}

int CTevChennalDB::Remove(int64_t nId) {
    const CCall call(*this);
    return Change([&] {
        // Cut to 32 bits: this width is relied on.
        return "delete from msgchennal where id = " + std::to_string(static_cast<int32_t>(nId));
    });
}

int CTevChennalDB::Count() {
    const CCall call(*this);
    int nCount = 0;
    const int nResult =
        WithoutTransaction([] { return std::string("select count(*) as rownum from msgchennal "); },
                           [&](CppSQLite3DB& db, const std::string& strStatement) {
                               const CppSQLite3Query query = db.execOwnQuery(strStatement.c_str());
                               nCount = query.eof() ? 0 : query.getIntField("rownum");
                           });
    return nResult == 0 ? nCount : 0;
}

bool CTevChennalDB::Clear() {
    const CCall call(*this);
    return Change([] { return std::string("delete from msgchennal"); }) == 0;
}
