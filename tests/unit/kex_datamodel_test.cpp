// SPDX-License-Identifier: MIT
// The endpoint objects that a plugin publishes and withdraws.
#include "voice_test.h"

namespace voice_test {
namespace {

const char *const kAdd = "libvoice_kex_datamodel_add_endpoint";
const char *const kDelete = "libvoice_kex_datamodel_delete_endpoint";

const std::string kRoot = "kex_getObject(bus, \"FXS.EndPoint\", 1) = <FXS.EndPoint>",
                  kInstance = "kex_getObject(bus, \"FXS.EndPoint.FXS1\", 1) = <FXS.EndPoint.FXS1>";

class DataModel : public VoiceTest {
protected:
    DataModel() { prepare(); }
    void prepare() override {
        strcpy(_PLUGIN_NAME, "FXS");
        bus().object("FXS.EndPoint");
        bus().clear_log();
    }
};

class AddEndpoint : public DataModel {
protected:
    const std::string enter_ = enter(kAdd), leave_ = leave(kAdd);
    const std::string looked_ = "object_getObject(<FXS.EndPoint>, \"FXS1\", 1, null) = null",
                      made_ = "object_createInstance(<FXS.EndPoint>, 0, \"FXS1\") = <FXS.EndPoint.FXS1>";
};

TEST_F(AddEndpoint, TheInstanceIsMadeAndCommitted) {
    EXPECT_EQ(libvoice_kex_datamodel_add_endpoint("FXS1"), 1);
    EXPECT_LOG_OF(kAdd, enter_, kRoot, looked_, made_, "object_commit(<FXS.EndPoint>) = 1", leave_);
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1"));
    EXPECT_EQ(endpt_table[0].used, 0u) << "the endpoint table is not touched";
}

TEST_F(AddEndpoint, AnExistingInstanceIsLeftAlone) {
    bus().object("FXS.EndPoint.FXS1");
    EXPECT_EQ(libvoice_kex_datamodel_add_endpoint("FXS1"), 0);
    EXPECT_LOG_OF(kAdd, enter_, kRoot, "object_getObject(<FXS.EndPoint>, \"FXS1\", 1, null) = <FXS.EndPoint.FXS1>",
                  said("x", kAdd, "Endpoint with name 'FXS1' already exists in datamodel."), leave_);
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1"));
}

TEST_F(AddEndpoint, AnInstanceThatCannotBeMade) {
    bus().fail("object_createInstance");
    EXPECT_EQ(libvoice_kex_datamodel_add_endpoint("FXS1"), 0);
    EXPECT_LOG_OF(kAdd, enter_, kRoot, looked_, "object_createInstance(<FXS.EndPoint>, 0, \"FXS1\") = null",
                  said("x", kAdd, "Failed to create instance of 'Endpoint'."), leave_);
}

TEST_F(AddEndpoint, ACommitThatFails) {
    bus().fail("object_commit");
    EXPECT_EQ(libvoice_kex_datamodel_add_endpoint("FXS1"), 0);
    EXPECT_LOG_OF(kAdd, enter_, kRoot, looked_, made_, "object_commit(<FXS.EndPoint>) = 0",
                  said("x", kAdd, "Failed to commit object."), leave_);
}

TEST_F(AddEndpoint, AMissingRootShowsAtTheInstance) {
    strcpy(_PLUGIN_NAME, "DECT");
    EXPECT_EQ(libvoice_kex_datamodel_add_endpoint("FXS1"), 0);
    EXPECT_LOG_OF(kAdd, enter_, "kex_getObject(bus, \"DECT.EndPoint\", 1) = null",
                  "object_getObject(null, \"FXS1\", 1, null) = null", "object_createInstance(null, 0, \"FXS1\") = null",
                  said("x", kAdd, "Failed to create instance of 'Endpoint'."), leave_);
}

TEST_F(AddEndpoint, APathThatWouldOverflowIsCut) {
    memset(_PLUGIN_NAME, 'p', 255);
    EXPECT_EQ(libvoice_kex_datamodel_add_endpoint("FXS1"), 0);
    EXPECT_EQ(bus().acts()[0], "kex_getObject(bus, \"" + std::string(255, 'p') + "\", 1) = null");
}

class DeleteEndpoint : public DataModel {
protected:
    DeleteEndpoint() { have(); }
    void have() {
        bus().object("FXS.EndPoint.FXS1");
        bus().object("FXS.EndPoint.FXS2");
    }
    const std::string enter_ = enter(kDelete), leave_ = leave(kDelete);
};

TEST_F(DeleteEndpoint, TheInstanceIsDeletedAndCommitted) {
    EXPECT_EQ(libvoice_kex_datamodel_delete_endpoint("FXS1"), 1);
    EXPECT_LOG_OF(kDelete, enter_, kRoot, kInstance, "object_delete(<FXS.EndPoint.FXS1>) = 1",
                  "object_commit(<FXS.EndPoint>) = 1", leave_);
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS2"));
}

TEST_F(DeleteEndpoint, WithoutARootEveryDeleteFails) {
    strcpy(_PLUGIN_NAME, "DECT");
    EXPECT_EQ(libvoice_kex_datamodel_delete_endpoint("FXS1"), 0);
    EXPECT_LOG_OF(kDelete, enter_, "kex_getObject(bus, \"DECT.EndPoint\", 1) = null",
                  said("x", kDelete, "No Root object [DECT.EndPoint] found : ignoring delete request"), leave_);
}

TEST_F(DeleteEndpoint, AMissingInstanceIsNamedInFull) {
    EXPECT_EQ(libvoice_kex_datamodel_delete_endpoint("FXS9"), 0);
    EXPECT_LOG_OF(kDelete, enter_, kRoot, "kex_getObject(bus, \"FXS.EndPoint.FXS9\", 1) = null",
                  said("x", kDelete, "No instance [FXS.EndPoint.FXS9] found : ignoring delete request"), leave_);
}

TEST_F(DeleteEndpoint, ANullNameIsAnEmptyName) {
    EXPECT_EQ(libvoice_kex_datamodel_delete_endpoint(nullptr), 0);
    EXPECT_THAT(bus().complaints(),
                ElementsAre(said("x", kDelete, "No instance [FXS.EndPoint.] found : ignoring delete request")));
}

TEST_F(DeleteEndpoint, ADeleteThatFailsSaysHandset) {
    bus().fail("object_delete");
    EXPECT_EQ(libvoice_kex_datamodel_delete_endpoint("FXS1"), 0);
    EXPECT_LOG_OF(kDelete, enter_, kRoot, kInstance, "object_delete(<FXS.EndPoint.FXS1>) = 0",
                  said("x", kDelete, "Failed to destroy Handset with name : FXS1"), leave_);
}

TEST_F(DeleteEndpoint, ACommitThatFailsNamesTheRoot) {
    bus().fail("object_commit");
    EXPECT_EQ(libvoice_kex_datamodel_delete_endpoint("FXS1"), 0);
    EXPECT_LOG_OF(kDelete, enter_, kRoot, kInstance, "object_delete(<FXS.EndPoint.FXS1>) = 1",
                  "object_commit(<FXS.EndPoint>) = 0",
                  said("x", kDelete, "Failed to commit object path : FXS.EndPoint"), leave_);
}

TEST_F(DeleteEndpoint, APathThatWouldOverflowIsCut) {
    EXPECT_EQ(libvoice_kex_datamodel_delete_endpoint(std::string(1000, 'n').c_str()), 0);
    EXPECT_EQ(bus().acts()[1],
              "kex_getObject(bus, \"" + ("FXS.EndPoint." + std::string(1000, 'n')).substr(0, 255) + "\", 1) = null");
}

TEST_F(DeleteEndpoint, EachExitShowsItsOwnLine) {
    std::vector<int> lines;
    const auto note_exit = [&] {
        for (const fake::TraceLine &line : bus().traces())
            if (line.marker && !line.enter && line.function == kDelete)
                lines.push_back(line.line);
        bus().clear_log();
    };
    libvoice_kex_datamodel_delete_endpoint("FXS9");
    note_exit();
    libvoice_kex_datamodel_delete_endpoint("FXS1");
    note_exit();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0], lines[1]);
}

} // namespace
} // namespace voice_test
