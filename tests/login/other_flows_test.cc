// The custom, external, payment-receipt, fingerprint and partner logins.
#include <gtest/gtest.h>

#include <fstream>

#include "ostrel/ol_identity_manager.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ostrel.h"
#include "support/emulator_service.h"

namespace ostrel {
namespace {

class OtherFlowsTest : public ::testing::Test {
 protected:
  template <class Getter>
  std::optional<OLError> run(const std::function<void(OLLoginBuilder&)>& configure, Getter getter) {
    return test::EmulatorService::runFlow(*facade_, configure, getter);
  }

  test::TestPlatform platform_;
  test::EmulatorService service_;
  std::shared_ptr<Ostrel> facade_ = service_.startFacade(platform_);
};

TEST_F(OtherFlowsTest, BuilderChecks) {
  auto b = *facade_->getLoginBuilder();
  auto message = [](auto result) { return result ? std::string("ok") : result.error().message(); };
  EXPECT_EQ(message(b->getCustomLoginFlow()), "Missing customID");
  EXPECT_EQ(message(b->getExternalLoginFlow()), "Missing externalID");
  EXPECT_EQ(message(b->getPaymentReceiptLoginFlow()), "Missing OfferId");
  for (std::size_t length : {31u, 33u}) {
    b->setOfferId(std::string(length, 'o'));
    EXPECT_EQ(message(b->getPaymentReceiptLoginFlow()), "Invalid OfferId") << length;
  }
  b->setOfferId(std::string(32, 'o'));
  EXPECT_EQ(message(b->getPaymentReceiptLoginFlow()), "ok");
  EXPECT_EQ(message(b->getMFPLoginFlow()), "Unable to retrieve Mobile Fingerprint");
  b->setPony("not json");
  EXPECT_EQ(message(b->getMFPLoginFlow()), "Unable to retrieve Mobile Fingerprint");
  // A pony whose fields are of another type names no user: refused when started.
  auto refused =
      run([](OLLoginBuilder& odd) { odd.setPony(R"({"session_id":5,"user_id":["O_x"]})"); },
          &OLLoginBuilder::getMFPLoginFlow);
  ASSERT_TRUE(refused);
  EXPECT_TRUE(refused->is(LocalErrorCodes::MFPLoginWrongFingerprint));
  EXPECT_EQ(message(b->getUO2CredentialsLoginFlow()), "Missing InfoUtente parameter");
  b->setInfoUtente("info");
  EXPECT_EQ(message(b->getUO2CredentialsLoginFlow()), "Missing BrivolaUser parameter");
}

TEST_F(OtherFlowsTest, CustomUserIsLocalAndCannotBeDeleted) {
  ASSERT_FALSE(run([](OLLoginBuilder& b) { b.setCustomID("host-42"); },
                   &OLLoginBuilder::getCustomLoginFlow));
  EXPECT_EQ(*facade_->getUserToken(), "C_host-42");
  auto [infoError, info] = test::await<std::optional<OLError>, std::optional<Json>>(
      [&](auto done) { facade_->getUserMetaInfo(done); });
  EXPECT_EQ((*info)["login"]["flow"], "custom");
  auto error =
      test::await<std::optional<OLError>>([&](auto done) { facade_->__temporaryUserDelete(done); });
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(LocalErrorCodes::UserDeleteError, "User cannot be custom"));
  EXPECT_TRUE(*facade_->isUserLogged());
}

TEST_F(OtherFlowsTest, ServiceLoginsAgainstTheEmulator) {
  ASSERT_FALSE(run([](OLLoginBuilder& b) { b.setBrivolaUser("partner").setInfoUtente("info"); },
                   &OLLoginBuilder::getUO2CredentialsLoginFlow));
  EXPECT_EQ(facade_->getUserToken()->substr(0, 2), "O_");
  ASSERT_TRUE(facade_->userLogout());

  auto missing = run([](OLLoginBuilder& b) { b.setOfferId(std::string(32, 'o')); },
                     &OLLoginBuilder::getPaymentReceiptLoginFlow);
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->message(), "Unable to retrieve appStoreReceipt");

  test::TempDir dir;
  const std::string receipt = dir.path() + "/receipt.bin";
  std::ofstream(receipt, std::ios::binary) << "RECEIPT-BYTES";
  ASSERT_FALSE(
      run([&](OLLoginBuilder& b) { b.setOfferId(std::string(32, 'o')).setReceiptUrl(receipt); },
          &OLLoginBuilder::getPaymentReceiptLoginFlow));
  EXPECT_TRUE(*facade_->isUserLogged());
  ASSERT_TRUE(facade_->userLogout());

  ASSERT_FALSE(run(
      [](OLLoginBuilder& b) {
        b.setPony(R"({"cookieData":{"ostrel":{"session_id":"s1","user_id":"O_fp"}}})");
      },
      &OLLoginBuilder::getMFPLoginFlow));
  EXPECT_EQ(*facade_->getUserToken(), "O_fp");
  ASSERT_TRUE(facade_->userLogout());
  ASSERT_FALSE(run([](OLLoginBuilder& b) { b.setExternalID("O_external"); },
                   &OLLoginBuilder::getExternalLoginFlow));
  EXPECT_EQ(*facade_->getUserToken(), "O_external");
}

TEST_F(OtherFlowsTest, AnEmailIdentityIsAddedToALoggedUser) {
  auto manager = *facade_->getIdentityManager();
  EXPECT_EQ(manager.get(), facade_->getIdentityManager()->get()) << "made once";
  auto anonymous =
      manager->getIdentityBuilder().setEmail("x@y.z").setPassword("p").getAddEmailIdentityFlow();
  ASSERT_FALSE(anonymous);
  EXPECT_TRUE(anonymous.error().is(LocalErrorCodes::IdentityBuilderError, "User Not Logged"));

  ASSERT_FALSE(run([](OLLoginBuilder& b) { b.setMSISDN("393339999999").setPIN("7"); },
                   &OLLoginBuilder::getMSISDPINLoginFlow));
  auto add = [&](const std::string& email) {
    return test::await<std::optional<OLError>>([&](auto done) {
      auto flow = manager->getIdentityBuilder()
                      .setEmail(email)
                      .setPassword("pw")
                      .setOnFlowCompleteCallback(done)
                      .getAddEmailIdentityFlow();
      if (!flow) return done(flow.error());
      (*flow)->startLoginFlow();
    });
  };
  EXPECT_FALSE(add("new@ostrel.test"));
  auto taken = add(test::EmulatorService::kEmail);
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->localCode(), LocalErrorCodes::AddEmailIdentityFlowError);
  EXPECT_EQ((*taken->extra())["code"], "IDENTITY_ALREADY_USED");
}

}  // namespace
}  // namespace ostrel
