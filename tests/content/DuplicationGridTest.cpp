// The weekly duplication grid and its settings file.
#include <gtest/gtest.h>

#include "app/Ini.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "content/DuplicationGrid.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

class Grid : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetSite();
        SetSuiteRoot(dir.folder());
        DetermineDossierSettings();
        DetermineDossierSettingsApplication();
    }
    void TearDown() override { ResetSite(); }
    testing::TempDir dir;
    testing::ScopedLogAndRegistry env{dir};
};

TEST_F(Grid, ItsFileIsNamedForTheProgramAndEveryHourIsOpenWithoutIt) {
    EXPECT_EQ(DuplicationSettingsFile(),
              dir.folder() + "Settings/KV3_Toverin/KV3_Toverin_Duplication.Ini");
    DuplicationGrid grid;
    grid.SetAll(3, 7, false);
    InitSettingsDuplication(grid);
    for (int base : {0, 3, 7})
        for (int station : {1, 7, 10})
            EXPECT_EQ(grid.StationText(base, station), std::string(kGridCells, '1'));
    EXPECT_FALSE(FileExists(DuplicationSettingsFile()));
}

TEST_F(Grid, TheStationsAreWrittenBackInTheirFormAndReadForEveryBase) {
    DuplicationGrid grid;
    grid.Set(0, 2, 3, 10, false);                // Wednesday, 10H
    grid.SetCell(0, 10, kGridCells - 1, false);  // Sunday, 23H
    ASSERT_TRUE(SaveSettingsDuplication(grid, 0));
    const std::string file = DuplicationSettingsFile();
    std::string wednesday(kGridCells, '1');
    wednesday[2 * 24 + 10] = '0';
    EXPECT_EQ(LectureIni(file, "Station_02", "Duplication", ""), wednesday);
    EXPECT_EQ(LectureIni(file, "Station_01", "Duplication", ""), std::string(kGridCells, '1'));
    EXPECT_EQ(LectureIni(file, "Station_10", "Duplication", "").back(), '0');

    // Any character but "1" closes an hour, and so does a position past a short value.
    EcritureIni(file, "Station_03", "Duplication", "1x1");
    DuplicationGrid loaded;
    InitSettingsDuplication(loaded);
    for (int base : {0, 5}) {
        EXPECT_FALSE(loaded.Allowed(base, 2, 3, 10));
        EXPECT_TRUE(loaded.Allowed(base, 2, 3, 9));
        EXPECT_TRUE(loaded.Allowed(base, 2, 4, 10));
        EXPECT_FALSE(loaded.Allowed(base, 10, 7, 23));
        EXPECT_EQ(loaded.StationText(base, 3), "101" + std::string(kGridCells - 3, '0'));
    }
    EXPECT_FALSE(loaded.Allowed(0, 1, 8, 0));   // no eighth day
    EXPECT_FALSE(loaded.Allowed(0, 11, 1, 0));  // no eleventh station
}

}  // namespace
}  // namespace toverin
