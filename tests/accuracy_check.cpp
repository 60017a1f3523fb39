// End-point error of the complete method on real frame pairs against the
// values recorded in tests/accuracy_table.tsv, on three of its pairs (one
// each from FlyingChairs, Middlebury and Sintel; the whole table takes
// minutes of CPU time and scripts/accuracy.sh prints it), and of each other
// preset on one pair against tests/preset_accuracy.tsv. A pair whose error
// grows by more than a small margin fails; a pair that improved by more than
// the margin is reported so that the table can be brought up to date. Skips
// where the data folder is absent.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "driver/flow_metrics.h"
#include "backends/backend_factory.h"
#include "driver/optic_flow.h"
#include "driver/pair_flow.h"
#include "driver/presets.h"
#include "driver/run_flow.h"
#include "image/read_image.h"

namespace {

struct Row {
  std::string pair;
  int width = 0, height = 0;
  double epe = 0.0;
};

// The rows of a table under tests/ (tab-separated, '#' comments) that
// `parse` reads.
template <typename T, typename Parse>
std::vector<T> readRows(const std::string& name, Parse parse) {
  std::vector<T> rows;
  std::ifstream in(VEMO_SOURCE_DIR "/tests/" + name);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    T row;
    if (parse(fields, row)) rows.push_back(row);
  }
  return rows;
}

std::vector<Row> readTable() {
  return readRows<Row>("accuracy_table.tsv", [](std::istringstream& f, Row& r) {
    return static_cast<bool>(f >> r.pair >> r.width >> r.height >> r.epe);
  });
}

// The pairs the test runs: large motion (chairs_0, where the matching term
// matters), small motion (RubberWhale) and a film scene.
bool tested(const Row& row) {
  return row.pair == "chairs_0" || row.pair == "middlebury_rubberwhale" || row.pair == "sintel_clean_alley_1";
}

std::vector<Row> testedRows() {
  std::vector<Row> rows;
  for (const Row& row : readTable())
    if (tested(row)) rows.push_back(row);
  return rows;
}

void PrintTo(const Row& row, std::ostream* os) { *os << row.pair; }

bool isDirectory(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Allowed growth of the error: 2 % of the recorded value plus 0.01 px, room
// for rounding differences between compilers and backends, far below what a
// broken stage costs.
double margin(double recorded) { return 0.02 * recorded + 0.01; }

class Accuracy : public testing::TestWithParam<Row> {};

}  // namespace

TEST(AccuracyTable, ListsEveryPairOnce) {
  const std::vector<Row> rows = readTable();
  ASSERT_GE(rows.size(), 1u) << "tests/accuracy_table.tsv is missing or empty";
  EXPECT_EQ(testedRows().size(), 3u) << "a tested pair is missing from the table";
  for (size_t i = 0; i < rows.size(); ++i) {
    EXPECT_GT(rows[i].epe, 0.0) << rows[i].pair;
    for (size_t j = 0; j < i; ++j) EXPECT_NE(rows[i].pair, rows[j].pair);
  }
}

TEST_P(Accuracy, EndPointErrorDoesNotRegress) {
  const Row& row = GetParam();
  const std::string dir = std::string(VEMO_DATA_DIR) + "/" + row.pair;
  if (!isDirectory(VEMO_DATA_DIR))
    GTEST_SKIP() << "no real frame pairs: the folder ../shared/data/flow beside the clone is missing";
  if (!isDirectory(dir)) GTEST_SKIP() << "no data folder " << dir;
  CTensor<float> frame1, frame2, truth, flow;
  NImageIO::readImage(dir + "/frame1.ppm", frame1);
  NImageIO::readImage(dir + "/frame2.ppm", frame2);
  COpticFlow::readMiddlebury((dir + "/gt.flo").c_str(), truth);
  ASSERT_EQ(frame1.xSize, row.width);
  ASSERT_EQ(frame1.ySize, row.height);
  testing::internal::CaptureStdout();
  runFlowGPU(frame1, frame2, flow, 0.8f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10);
  testing::internal::GetCapturedStdout();
  const double epe = evaluateFlow(flow, truth).epe;
  std::printf("%s\t%d\t%d\t%.4f\t(recorded %.4f)\n", row.pair.c_str(), row.width, row.height, epe, row.epe);
  EXPECT_LE(epe, row.epe + margin(row.epe)) << row.pair << " got worse";
  if (epe < row.epe - margin(row.epe)) {
    std::printf("%s improved beyond the margin: update tests/accuracy_table.tsv\n", row.pair.c_str());
  }
}

// One row of tests/preset_accuracy.tsv: a preset's error on one pair.
struct PresetRow {
  std::string preset, pair;
  double epe = 0.0;
};

std::vector<PresetRow> readPresetTable() {
  return readRows<PresetRow>("preset_accuracy.tsv", [](std::istringstream& f, PresetRow& r) {
    return static_cast<bool>(f >> r.preset >> r.pair >> r.epe);
  });
}

void PrintTo(const PresetRow& row, std::ostream* os) { *os << row.preset << " on " << row.pair; }

class PresetAccuracy : public testing::TestWithParam<PresetRow> {};

TEST(PresetAccuracyTable, CoversEveryPresetButDefault) {
  const std::vector<PresetRow> rows = readPresetTable();
  for (const FlowPreset& preset : flowPresets()) {
    int count = 0;
    for (const PresetRow& row : rows) count += row.preset == preset.name;
    EXPECT_EQ(count, preset.name == "default" ? 0 : 1) << preset.name;
  }
}

TEST_P(PresetAccuracy, EndPointErrorDoesNotRegress) {
  const PresetRow& row = GetParam();
  const std::string dir = std::string(VEMO_DATA_DIR) + "/" + row.pair;
  if (!isDirectory(dir)) GTEST_SKIP() << "no data folder " << dir;
  CTensor<float> frame1, frame2, truth;
  NImageIO::readImage(dir + "/frame1.ppm", frame1);
  NImageIO::readImage(dir + "/frame2.ppm", frame2);
  COpticFlow::readMiddlebury((dir + "/gt.flo").c_str(), truth);
  const FlowPreset& preset = findPreset(row.preset);
  std::unique_ptr<vemo::Backend> backend = vemo::makeBackend();
  testing::internal::CaptureStdout();
  const CTensor<float> flow = flowBetween(*backend, frame1, frame2, preset.sigma, preset.parameters);
  testing::internal::GetCapturedStdout();
  const double epe = evaluateFlow(flow, truth).epe;
  std::printf("%s\t%s\t%.4f\t(recorded %.4f)\n", row.preset.c_str(), row.pair.c_str(), epe, row.epe);
  EXPECT_LE(epe, row.epe + margin(row.epe)) << row.preset << " got worse on " << row.pair;
  if (epe < row.epe - margin(row.epe))
    std::printf("%s improved beyond the margin: update tests/preset_accuracy.tsv\n", row.preset.c_str());
}

INSTANTIATE_TEST_SUITE_P(RealPairs, PresetAccuracy, testing::ValuesIn(readPresetTable()),
                         [](const testing::TestParamInfo<PresetRow>& info) { return info.param.preset; });

INSTANTIATE_TEST_SUITE_P(RealPairs, Accuracy, testing::ValuesIn(testedRows()),
                         [](const testing::TestParamInfo<Row>& info) { return info.param.pair; });
