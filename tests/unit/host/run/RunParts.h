// What the tests of a run's parts share: a state directory with an empty queue, a report on a
// console of its own, and a receiver in the place of the module.
#ifndef TESTS_UNIT_HOST_RUN_RUNPARTS_H
#define TESTS_UNIT_HOST_RUN_RUNPARTS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/abi/MsgTypes.h"
#include "host/base/HostOptions.h"
#include "host/report/RunListeners.h"
#include "host/run/QueueMonitor.h"
#include "host/run/RunControl.h"
#include "host/transport/Router.h"
#include "tests/support/CountingReceiver.h"
#include "tests/support/DbFile.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"

class RunPartsTest : public testing::Test {
protected:
    // nRows: what the queue has room for.
    explicit RunPartsTest(uint64_t nRows = QueueLimits().nRows) : m_limits(RowLimit(nRows)) {
        m_options.strStateDir = m_dir.Path();
        DbFile(m_options.ChannelDatabase()).Execute(CHANNEL_TABLE);
        (void)m_router.RegisterReceiver(MSG_TYPE_HIPS_EVENT, &m_receiver, 0);
    }

    void AddRows(int nRows) const {
        DbFile queue(m_options.ChannelDatabase());
        for (int i = 0; i < nRows; ++i) {
            queue.Execute("insert into msgchennal(createtime, detail, mid) values('0', '{}', 5)");
        }
    }

    static EventBatch Batch(uint64_t nNumber) {
        EventBatch batch;
        batch.strBody = "{}";
        batch.nNumber = nNumber;
        batch.nEvents = 3;
        return batch;
    }

    static QueueLimits RowLimit(uint64_t nRows) {
        QueueLimits limits;
        limits.nRows = nRows;
        return limits;
    }

    const TestDir m_dir;
    const StdoutCapture m_standardOutput;
    const QueueLimits m_limits;
    HostOptions m_options;
    Console m_output;
    RunControl m_control{m_output};
    VerdictService m_service;
    RunJournal m_journal{m_service, {}, false};
    QueueMonitor m_queue{m_dir.Path() + "/data/db/tevchennaldb.db", m_limits, m_journal};
    CountingReceiver m_receiver;  // before the router, which calls it until it is closed
    Router m_router;
};

#endif
