#include "client/batch/SlurmArray.h"

#include <gtest/gtest.h>

using namespace stillora;

TEST(SlurmArray, FindsTheJobAmongRemarks)
{
    EXPECT_EQ(SlurmArray::jobIn("1234"), "1234");
    EXPECT_EQ(SlurmArray::jobIn("1234;cluster"), "1234");
    EXPECT_EQ(SlurmArray::jobIn("sbatch: 5 nodes are down\n1234;cluster"), "1234");
    EXPECT_EQ(SlurmArray::jobIn("1234\nsbatch: warning: no such partition"), "1234");
}

TEST(SlurmArray, TakesNothingElseForAJob)
{
    for (const char* written : {"", "\n\n", ";cluster", "sbatch: Submitted", "12a", "-1", "1 2"})
        EXPECT_FALSE(SlurmArray::jobIn(written)) << written;
}

TEST(SlurmArray, KnowsTheEndOfIndexes)
{
    EXPECT_EQ(SlurmArray::endOfArrays("MaxArraySize            = 64\nMaxJobCount = 10000"), 64u);
    EXPECT_EQ(SlurmArray::endOfArrays("MaxArraySize = 0"), 2u) << "an array has an index";
    constexpr size_t kUsual = 1001;
    for (const char* written :
         {"", "slurm_load_ctl_conf error", "MaxArraySize", "MaxArraySize = 99999999999999999999999"})
        EXPECT_EQ(SlurmArray::endOfArrays(written), kUsual) << written;
}
