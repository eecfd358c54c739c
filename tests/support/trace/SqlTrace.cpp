#include "tests/support/trace/SqlTrace.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace {

std::mutex g_mutex;  // guards what follows
bool g_bTracing = false;
std::vector<std::string> g_statements;
SqlTrace::Hook g_hook;

thread_local int t_nQuiet = 0;

bool IsSqlitesOwn(const char* pszStatement) {
    constexpr char PREFIX[] = "SELECT*FROM";
    return strncmp(pszStatement, PREFIX, sizeof(PREFIX) - 1) == 0;
}

}  // namespace

SqlTrace::SqlTrace(Hook hook) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_bTracing = true;
    g_statements.clear();
    g_hook = std::move(hook);
}

SqlTrace::~SqlTrace() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_bTracing = false;
    g_hook = nullptr;
}

std::vector<std::string> SqlTrace::Statements() const {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_statements;
}

size_t SqlTrace::Count(const std::string& strStatement) const {
    const std::vector<std::string> statements = Statements();
    return static_cast<size_t>(std::count(statements.begin(), statements.end(), strStatement));
}

void SqlTrace::Note(const char* pszStatement) {
    if (t_nQuiet > 0 || pszStatement == nullptr || IsSqlitesOwn(pszStatement)) {
        return;
    }
    Hook hook;
    {
        const std::lock_guard<std::mutex> lock(g_mutex);
        if (!g_bTracing) {
            return;
        }
        g_statements.emplace_back(pszStatement);
        hook = g_hook;
    }
    if (hook) {
        const Quiet quiet;
        hook(pszStatement);
    }
}

SqlTrace::Quiet::Quiet() {
    ++t_nQuiet;
}

SqlTrace::Quiet::~Quiet() {
    --t_nQuiet;
}
