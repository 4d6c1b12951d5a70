#include "orrery/Mount.h"

#include <gtest/gtest.h>

#include "P4RuntimeTolmar/Entities.h"
#include "tests/RuntimeFolder.h"

namespace {

using QuillVesta::Mount;
using QuillVesta::MountDescription;
using QuillVesta::QuillVestaType;
using TolmarHwLib::L3IifTH3Config;

constexpr const char* kPath = "p4runtime/outputTables/tolmar/l3IifTH3Table/config";
constexpr const char* kType = "TolmarHwLib::L3IifTH3Config";

MountDescription description(QuillVestaType type, unsigned capacity) {
  MountDescription result(type);
  result.collectionIs("table", capacity);
  return result;
}

class MountTest : public testing::Test {
 protected:
  RuntimeFolder folder_;
  Quill::EventLoop loop_;
  Quill::Ptr<const Orrery::EntityManager> manager_ =
      Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_);
  const Mount mount_{manager_};
};

TEST_F(MountTest, Mount_FoundByPathUntilUnmounted) {
  EXPECT_FALSE(mount_.getEntity(kPath));
  const auto entity = mount_.doMount(kPath, kType, description(QuillVestaType::writer, 16));
  EXPECT_TRUE(Quill::ptrCast<L3IifTH3Config>(entity));
  EXPECT_EQ(mount_.getEntity(kPath), entity);
  EXPECT_EQ(mount_.doMount(kPath, kType, description(QuillVestaType::writer, 16)), entity);

  mount_.doUnmount(kPath);
  EXPECT_FALSE(mount_.getEntity(kPath));
  EXPECT_FALSE(entity->attached());
  EXPECT_GT(folder_.files(), 0u) << "letting go of a table keeps its rows";
  mount_.doUnmount(kPath);
}

TEST_F(MountTest, Mount_RefusesWhatDoesNotFit) {
  mount_.doMount(kPath, kType, description(QuillVestaType::writer, 16));
  const struct {
    const char* name;
    const char* path;
    const char* type;
    MountDescription wanted;
  } cases[] = {
      {"unknown type", "a/b", "TolmarHwLib::NoSuchTable", description(QuillVestaType::writer, 16)},
      {"another type", kPath, "TolmarHwLib::L3IifTH3Status", description(QuillVestaType::writer, 16)},
      {"another side", kPath, kType, description(QuillVestaType::reader, 16)},
      {"another capacity", kPath, kType, description(QuillVestaType::writer, 17)},
      {"a path that climbs", "../elsewhere", kType, description(QuillVestaType::writer, 16)},
  };
  for (const auto& c : cases) {
    EXPECT_THROW(mount_.doMount(c.path, c.type, c.wanted), Cairn::Exception) << c.name;
  }
  EXPECT_EQ(manager_->mountedPaths(), std::vector<Quill::String>{kPath});
}

TEST_F(MountTest, Cleanup_RemovesTheRowsOfTheWriterOnly) {
  const auto entity =
      Quill::ptrCast<L3IifTH3Config>(mount_.doMount(kPath, kType, description(QuillVestaType::writer, 16)));
  entity->tableIs(TolmarHwLib::L3IifTH3ConfigEntry{});

  Quill::EventLoop readerLoop;
  const Mount reader{Quill::allocate<Orrery::EntityManager>(folder_.path(), readerLoop)};
  reader.doMount(kPath, kType, description(QuillVestaType::reader, 16));
  reader.cleanup(kPath);
  EXPECT_EQ(entity->table().members(), 1u);

  mount_.cleanup(kPath);
  mount_.doUnmount(kPath);
  const auto again =
      Quill::ptrCast<L3IifTH3Config>(mount_.doMount(kPath, kType, description(QuillVestaType::writer, 16)));
  EXPECT_EQ(again->table().members(), 0u);
}

}  // namespace
