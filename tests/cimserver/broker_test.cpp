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
    CMPIInstance* instance() {
        CMPIObjectPath* const made = path();
        CMAddKey(made, "name", "one", CMPI_chars);
        return CMNewInstance(handle, made, nullptr);
    }
    // What the request handed out is freed with it.
    void TearDown() override {
        request.reset();
        EXPECT_EQ(live_objects(), 0);
    }
};

TEST_F(BrokerTest, ValuesComeBackAsTheyWereSet) {
    const auto* const args = CMNewArgs(handle, nullptr);
    const auto back = [&](CMPIType type, const void* value) {
        CMAddArg(args, "v", static_cast<const CMPIValue*>(value), type);
        return CMGetArg(args, "V", nullptr);
    };
    const CMPIUint32 number = 4294967295U;
    const CMPISint8 small = -5;
    const CMPIBoolean flag = 1;
    const CMPIReal32 real = 0.5F;
    const CMPIString* const string = CMNewString(handle, "text", nullptr);
    EXPECT_EQ(back(CMPI_uint32, &number).value.uint32, number);
    EXPECT_EQ(back(CMPI_sint8, &small).value.sint8, small);
    EXPECT_EQ(back(CMPI_boolean, &flag).value.boolean, 1);
    EXPECT_EQ(back(CMPI_real32, &real).value.real32, real);
    EXPECT_STREQ(CMGetCharPtr(back(CMPI_string, &string).value.string), "text");
    EXPECT_EQ(back(CMPI_chars, "more").type, CMPI_string);
    EXPECT_STREQ(static_cast<const char*>(CMGetArg(args, "v", nullptr).value.string->hdl), "more");
    EXPECT_EQ(back(CMPI_uint32, nullptr).type, CMPI_uint32);
    EXPECT_TRUE(CMIsNullValue(CMGetArg(args, "v", &status)));
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetArg(args, "absent", &status).state, CMPI_notFound);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
}

TEST_F(BrokerTest, ArraysHoldTheirTypeAndSize) {
    CMPIArray* const array = CMNewArray(handle, 2, CMPI_string, nullptr);
    const CMPIUint32 number = 1;
    EXPECT_EQ(CMSetArrayElementAt(array, 0, "x", CMPI_chars).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetArrayElementAt(array, 1, &number, CMPI_uint32).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    EXPECT_EQ(CMSetArrayElementAt(array, 2, "x", CMPI_chars).rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_TRUE(CMIsNullValue(CMGetArrayElementAt(array, 1, nullptr)));
    EXPECT_EQ(CMGetArrayElementAt(array, 2, &status).state, CMPI_notFound);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_EQ(CMNewArray(handle, 0xFFFFFFFFU, CMPI_string, &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(BrokerTest, PropertiesAreHeldToTheClassAndTheFilter) {
    CMPIInstance* const made = instance();
    const char* wanted[] = {"NUMBER", nullptr};
    const char* keys[] = {"name", nullptr};
    const CMPIUint32 number = 7;
    EXPECT_EQ(CMSetProperty(made, "number", "7", CMPI_chars).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    EXPECT_EQ(CMSetProperty(made, "none", "7", CMPI_chars).rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    const CMPIObjectPath* const other = path();
    EXPECT_EQ(CMSetProperty(made, "other", &other, CMPI_ref).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetPropertyFilter(made, wanted, keys).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetProperty(made, "number", &number, CMPI_uint32).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetProperty(made, "other", &other, CMPI_ref).rc, CMPI_RC_OK);  // passed over
    EXPECT_EQ(made->ft->getPropertyCount(made, nullptr), 2U);
    EXPECT_STREQ(CMGetCharPtr(CMGetProperty(made, "name", nullptr).value.string), "one");
    EXPECT_EQ(CMSetPropertyFilter(made, &wanted[1], nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(made->ft->getPropertyCount(made, nullptr), 0U);
    EXPECT_FALSE(CMClassPathIsA(handle, path("nobody"), "nobody", &status));
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(CMNewInstance(handle, path("nobody"), &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_CLASS);
}

TEST_F(BrokerTest, NullArgumentsAreRefused) {
    CMPIObjectPath* const p = path();
    const auto told = [&](const auto&) { return status.rc; };
    EXPECT_EQ(told(CMNewInstance(handle, nullptr, &status)), CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_EQ(told(CMNewObjectPath(handle, nullptr, nullptr, &status)), CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(told(CMNewObjectPath(handle, nullptr, "A", &status)), CMPI_RC_OK);
    EXPECT_EQ(told(CBEnumInstanceNames(handle, nullptr, nullptr, &status)), CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_EQ(told(CBGetInstance(handle, nullptr, p, nullptr, &status)), CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(told(CBInvokeMethod(handle, nullptr, p, nullptr, nullptr, nullptr, &status)),
              CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(CMAddKey(p, nullptr, "v", CMPI_chars).rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(CMAddKey(p, "k", nullptr, CMPI_chars).rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(CMAddKey(p, "k", &p, CMPI_enumeration).rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
    CMPIArray* const array = CMNewArray(handle, 1, CMPI_string, nullptr);
    EXPECT_EQ(CMAddKey(p, "k", &array, CMPI_stringA).rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
    EXPECT_EQ(CMNewArgs(handle, nullptr)->ft->getArg(nullptr, nullptr, nullptr).state, CMPI_notFound);
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
