// ILumx through the host binder transport: a BnLumx and a callback of this
// process, each reached through its service socket (so both sides hold
// proxies, as lumx and lumxd do), carry every operation intact.
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <lumx_host/binder_host.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "aidl/aidl_test_support.h"

namespace lumx_aidl_test {
namespace {

template <typename I>
void ExpectVersionAndHash(I& remote) {
  int32_t version = 0;
  std::string hash;
  ASSERT_TRUE(remote.getInterfaceVersion(&version).isOk());
  ASSERT_TRUE(remote.getInterfaceHash(&hash).isOk());
  EXPECT_EQ(2, version);
  EXPECT_EQ(ILumx::hash, hash);
}

TEST(AidlEndToEnd, EveryOperationAndTheCallbackArriveIntactOverTheSocket) {
  char tmpl[] = "/tmp/lumx-aidl-test-XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(tmpl));
  setenv("LUMX_BINDER_DIR", tmpl, 1);
  auto impl = ::ndk::SharedRefBase::make<RecordingLumx>();
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  const std::string lumxName = std::string(ILumx::descriptor) + "/aidl-e2e";
  const std::string cbName = std::string(IReceiveAudioCallback::descriptor) + "/aidl-e2e";
  ASSERT_EQ(EX_NONE, AServiceManager_addService(impl->asBinder().get(), lumxName.c_str()));
  ASSERT_EQ(EX_NONE, AServiceManager_addService(cb->asBinder().get(), cbName.c_str()));
  ::ndk::SpAIBinder lumxBinder(lumx_host::ConnectToServiceSocket(lumxName.c_str()));
  ::ndk::SpAIBinder cbBinder(lumx_host::ConnectToServiceSocket(cbName.c_str()));
  std::shared_ptr<ILumx> lumx = ILumx::fromBinder(lumxBinder);
  std::shared_ptr<IReceiveAudioCallback> cbProxy = IReceiveAudioCallback::fromBinder(cbBinder);
  ASSERT_TRUE(lumx != nullptr && cbProxy != nullptr);
  ASSERT_TRUE(lumx->isRemote() && cbProxy->isRemote());
  // The descriptor is checked on remote binders too.
  EXPECT_EQ(nullptr, ILumx::fromBinder(cbBinder));
  EXPECT_EQ(nullptr, IReceiveAudioCallback::fromBinder(lumxBinder));

  // RegisterReceiveAudioCallback hands the server a proxy of a callback
  // that it calls back over the socket.
  CallContext ctx;
  ctx.callback = ::ndk::SharedRefBase::make<RecordingCallback>();
  ctx.serverCallsBack = true;
  ASSERT_EQ(33u, ClientCalls().size());
  for (const auto& [name, call] : ClientCalls()) EXPECT_TRUE(call(*lumx, CodeOf("ILumx", name), ctx)) << name;
  ExpectVersionAndHash(*lumx);
  ExpectVersionAndHash(*cbProxy);

  // A service-side error comes back as the status alone: results stay untouched.
  CommandResult untouched;
  untouched.strList = {"before"};
  ::ndk::ScopedAStatus st = lumx->NewProcessor(12345, &untouched);
  EXPECT_EQ(EX_SERVICE_SPECIFIC, st.getExceptionCode());
  EXPECT_EQ(CodeOf("ILumx", "NewProcessor"), st.getServiceSpecificError());
  EXPECT_NE(std::string::npos, std::string(st.getMessage()).find("NewProcessor: arguments differ"));
  EXPECT_EQ(std::vector<std::string>{"before"}, untouched.strList);

  // One-way packets through the callback proxy arrive whole and in order.
  const int c = CodeOf("IReceiveAudioCallback", "ReceiveAudio");
  for (int s = 0; s < 3; ++s) EXPECT_TRUE(cbProxy->ReceiveAudio(Gen<AudioPacket>(c, s)).isOk());
  ASSERT_TRUE(cb->WaitFor(3));
  EXPECT_EQ((std::vector<AudioPacket>{Gen<AudioPacket>(c, 0), Gen<AudioPacket>(c, 1), Gen<AudioPacket>(c, 2)}),
            cb->Packets());
  unsetenv("LUMX_BINDER_DIR");
  std::error_code ec;
  std::filesystem::remove_all(tmpl, ec);
}

}  // namespace
}  // namespace lumx_aidl_test
