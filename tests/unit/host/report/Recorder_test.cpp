#include "host/report/Recorder.h"

#include <gtest/gtest.h>

#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/RunHappenings.h"

TEST(RecorderTest, TheRecordingHasOneMessageALine) {
    const TestDir dir;
    const std::string strFile = dir.Path() + "/recording";
    Console output;
    {
        Recorder recorder(output, std::shared_ptr<FILE>(fopen(strFile.c_str(), "w"), fclose));
        recorder.OnEvent(BatchSent{OneEvent(1)}, 0);
        recorder.OnEvent(BatchEnded{OneEvent(1), 0}, 0);
        recorder.OnEvent(BatchSent{OneEvent(2)}, 0);
    }

    EXPECT_EQ("{}\n{}\n", FileText(strFile));
}

TEST(RecorderTest, ARecordingThatCannotBeWrittenEndsAndSaysSoOnce) {
    Console output;
    testing::internal::CaptureStderr();
    Recorder recorder(output, std::shared_ptr<FILE>(fopen("/dev/full", "w"), fclose));

    recorder.OnEvent(BatchSent{OneEvent(1)}, 0);
    recorder.OnEvent(BatchSent{OneEvent(2)}, 0);

    EXPECT_EQ("tevmon-host: the recording ends here: No space left on device\n",
              testing::internal::GetCapturedStderr());
}
