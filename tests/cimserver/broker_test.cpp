// The broker's tables as a provider, also a careless one, calls them.
#include "cimserver/broker/broker.h"

#include <gtest/gtest.h>

#include "cimserver/broker/objects.h"
#include "cimserver/mof/reader.h"

namespace {

using namespace cimserver;

class BrokerTest : public ::testing::Test {
protected:
    Broker broker{make_schema()};
    const CMPIBroker* handle = broker.handle();
    std::optional<Request> request{std::in_place};
    CMPIStatus status{};

    static Schema make_schema() {
        Schema schema;
        std::string error;
        EXPECT_TRUE(
            read_mof("class A { [Key] string name; uint32 number; string list[]; A REF other; }; class B : A {};", "t",
                     schema, error))
            << error;
        return schema;
    }
    CMPIObjectPath* path(const char* class_name = "B") { return CMNewObjectPath(handle, "n/s", class_name, nullptr); }
    // What the request handed out is freed with it.
    void TearDown() override {
        request.reset();
        EXPECT_EQ(live_objects(), 0);
    }
};

TEST_F(BrokerTest, ValuesAreHeldToTheClassTheFilterAndTheArray) {
    CMPIObjectPath* const named = path();
    CMAddKey(named, "name", "one", CMPI_chars);
    CMPIInstance* const made = CMNewInstance(handle, named, nullptr);
    const char* wanted[] = {"NUMBER", nullptr};
    const char* keys[] = {"name", nullptr};
    const CMPIUint32 number = 7;
    EXPECT_EQ(CMSetProperty(made, "number", "7", CMPI_chars).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    EXPECT_EQ(CMSetProperty(made, "none", "7", CMPI_chars).rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_EQ(CMSetProperty(made, "other", &named, CMPI_ref).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetPropertyFilter(made, wanted, keys).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetProperty(made, "number", &number, CMPI_uint32).rc, CMPI_RC_OK);
    EXPECT_EQ(made->ft->getPropertyCount(made, nullptr), 2U);
    CMPIArray* const array = CMNewArray(handle, 2, CMPI_string, nullptr);
    EXPECT_EQ(CMSetArrayElementAt(array, 1, &number, CMPI_uint32).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    EXPECT_EQ(CMSetArrayElementAt(array, 2, "x", CMPI_chars).rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_EQ(CMGetArrayElementAt(array, 2, nullptr).state, CMPI_notFound);
    EXPECT_EQ(CMNewArray(handle, 0xFFFFFFFFU, CMPI_string, nullptr), nullptr);
    EXPECT_EQ(CMNewInstance(handle, path("nobody"), &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_CLASS);
    EXPECT_EQ(CMNewInstance(handle, nullptr, &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_EQ(CMAddKey(named, nullptr, "v", CMPI_chars).rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(CMAddKey(named, "k", &named, CMPI_enumeration).rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
}

TEST_F(BrokerTest, AClonesLifeIsItsOwnersAndAThreadWithoutARequestGetsNothing) {
    CMPIObjectPath* const clone = CMClone(path(), nullptr);
    CMPIString* const string = CMNewString(handle, "x", nullptr);
    EXPECT_EQ(CMRelease(string).rc, CMPI_RC_OK);  // not a clone: freed with the request
    EXPECT_STREQ(CMGetCharPtr(string), "x");
    request.reset();
    EXPECT_EQ(live_objects(), 1);
    EXPECT_EQ(CMNewString(handle, "x", &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_EQ(handle->bft->attachThread(handle, nullptr).rc, CMPI_RC_OK);
    EXPECT_NE(CMNewString(handle, "x", nullptr), nullptr);
    EXPECT_EQ(handle->bft->detachThread(handle, nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(CMRelease(clone).rc, CMPI_RC_OK);
}

TEST_F(BrokerTest, AMissingFactoryOrClassIsTold) {
    const std::pair<Registration, const char*> cases[] = {
        {{"A", "P", "", "n/s", true, false, false}, "P_Create_InstanceMI is not in the library"},
        {{"A", "P", "", "n/s", false, true, false}, "P_Create_AssociationMI is not in the library"},
        {{"A", "P", "", "n/s", false, false, true}, "P_Create_MethodMI is not in the library"},
        {{"Z", "P", "", "n/s", true, true, true}, "class Z is registered but not defined"},
    };
    for (const auto& [registration, told] : cases) {
        std::string error;
        EXPECT_FALSE(broker.load(
            {registration}, [](const std::string&) { return nullptr; }, error));
        EXPECT_EQ(error, told);
    }
}

}  // namespace
