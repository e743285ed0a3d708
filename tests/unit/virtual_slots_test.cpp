// The order of the virtual methods is part of the ABI: applications and services that were built separately depend on
// it.
#include "client-objects.h"
#include "support/tv-messages.h"

#include <mmservice/interfaces.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#if defined(__GXX_ABI_VERSION) && (defined(__x86_64__) || defined(__i386__))

using namespace tvservice;

namespace {

constexpr std::ptrdiff_t notVirtual = -1;
constexpr std::ptrdiff_t firstMethod = 2; // after the destructor's two entries

// The slot of a pointer to a member function. For a virtual function the pointer holds the slot's offset in bytes plus
// one, otherwise the function's address, which is even.
template <class Pointer> std::ptrdiff_t slotOf(Pointer pointer) {
    static_assert(std::is_member_function_pointer_v<Pointer>);
    std::ptrdiff_t word;
    std::memcpy(&word, &pointer, sizeof word);
    return word % 2 == 0 ? notVirtual : word / static_cast<std::ptrdiff_t>(sizeof(void*));
}

using Slots = std::vector<std::ptrdiff_t>;

// This many consecutive slots.
Slots from(std::ptrdiff_t first, std::size_t count) {
    Slots slots(count);
    for (auto& slot : slots) slot = first++;
    return slots;
}

// The slots of all messages' methods, in the order of message ids.
template <class... Message> Slots slotsOf(support::TypeList<Message...>) {
    std::map<std::uint32_t, std::ptrdiff_t> slots;
    (slots.emplace(Message::meta.messageId, slotOf(support::Method<Message>::pointer)), ...);
    Slots inOrder;
    for (const auto& [id, slot] : slots) inOrder.push_back(slot);
    return inOrder;
}

TEST(VirtualSlots, OfTheTvServiceAreItsRequestsThenItsRegistry) {
    using I = ServiceInterface;
    auto slots = slotsOf(support::TvRequests{});
    slots.insert(slots.end(), {slotOf(&I::addClient), slotOf(&I::removeClient)});
    EXPECT_EQ(slots, from(firstMethod, support::TvRequests::size + 2));
    EXPECT_EQ((Slots{slotOf(&I::tvServiceReq), slotOf(&I::tvServiceSwapWinReq), slotOf(&I::tvServiceSourceChanged)}),
              (Slots{firstMethod, firstMethod + 1, firstMethod + 16}));
}

TEST(VirtualSlots, OfATvClientAreTheNotifications) {
    using I = ClientInterface;
    EXPECT_EQ(slotsOf(support::TvNotifications{}), from(firstMethod, support::TvNotifications::size));
    EXPECT_EQ(
        (Slots{slotOf(&I::tvServiceInfo), slotOf(&I::tvServiceConflictInfo), slotOf(&I::tvserviceOadProgressNotify)}),
        (Slots{firstMethod, firstMethod + 1, firstMethod + 24}));
}

TEST(VirtualSlots, OfTheAdaptersTvClientObjectContinueAfterTheNotifications) {
    using I = TvServiceClient;
    EXPECT_EQ((Slots{slotOf(&I::tvServiceInfocb), slotOf(&I::addClient), slotOf(&I::removeClient)}),
              from(slotOf(&I::tvserviceOadProgressNotify) + 1, 3));
    EXPECT_EQ(slotOf(&I::tvServiceInfo), firstMethod);
    EXPECT_EQ(slotOf(&I::tvserviceOadProgressNotify), slotOf(&ClientInterface::tvserviceOadProgressNotify));
}

TEST(VirtualSlots, OfTheMmServiceAndItsClientAreTheirMessageThenTheRegistry) {
    using I = mmservice::ServiceInterface;
    EXPECT_EQ((Slots{slotOf(&I::mmServiceReq), slotOf(&I::addClient), slotOf(&I::removeClient)}), from(firstMethod, 3));
    EXPECT_EQ(slotOf(&mmservice::ClientInterface::mmServiceInfo), firstMethod);
}

TEST(VirtualSlots, OfTheAdaptersMmClientObjectContinueAfterTheAnswer) {
    using I = MmServiceClient;
    EXPECT_EQ((Slots{slotOf(&I::mmServiceInfo), slotOf(&I::addClient), slotOf(&I::removeClient)}),
              from(firstMethod, 3));
}

template <class Message> struct AdapterMethod;
#define ADAPTER_METHOD(service, direction, Name, method, ...)           \
    template <> struct AdapterMethod<messages::Name> {                  \
        static constexpr auto pointer = &ModelTvServiceAdapter::method; \
    };
TVSERVICE_REQUESTS(ADAPTER_METHOD)
#undef ADAPTER_METHOD

TEST(VirtualSlots, OfTheAdapterAreTheFrameworksThenOneRequest) {
    support::forEach(support::TvRequests{}, []<class Message>() {
        const bool isVirtual = std::is_same_v<Message, messages::SetCasService>;
        EXPECT_EQ(slotOf(AdapterMethod<Message>::pointer),
                  isVirtual ? slotOf(&ModelTvServiceAdapter::performStopping) + 1 : notVirtual);
    });
    EXPECT_EQ(slotOf(&ModelTvServiceAdapter::addClient), notVirtual);
    EXPECT_EQ(slotOf(&ModelTvServiceAdapter::removeClient), notVirtual);
}

static_assert(std::has_virtual_destructor_v<ServiceInterface> && std::has_virtual_destructor_v<ClientInterface>);
static_assert(std::has_virtual_destructor_v<mmservice::ServiceInterface> &&
              std::has_virtual_destructor_v<mmservice::ClientInterface>);

} // namespace

#endif
