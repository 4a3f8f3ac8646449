#include "transports/ipc/IpcTransport.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <kestrel/memory/Blocks.hpp>

#include "TransportSuite.hpp"
#include "src/StreamsFactoryImpl.hpp"
#include "transports/ipc/IpcEndpoint.hpp"
#include "transports/ipc/Record.hpp"

namespace kestrel::streams {
namespace {

namespace fs = std::filesystem;
using datastreaming::AttributeMap;
using testing::ElementsAre;
using testing::HasSubstr;

/// A folder of its own, which goes with it.
class Folder {
 public:
  Folder() {
    char name[] = "/tmp/kestrel-ipc-XXXXXX";
    _path = ::mkdtemp(name);
  }
  ~Folder() { fs::remove_all(_path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  [[nodiscard]] const std::string& path() const { return _path; }
  [[nodiscard]] std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(_path)) names.push_back(entry.path());
    return names;
  }

 private:
  std::string _path;
};

using Factory = std::shared_ptr<datastreaming::StreamsFactory>;

/// With limits of their own, two of them share as little as two processes do.
Factory factoryIn(const std::string& folder, std::uint64_t queueLimit = ByteBudget::defaultLimit) {
  return std::make_shared<StreamsFactoryImpl>(
      [=](const ServiceSettings&) { return std::make_shared<IpcTransport>(folder, queueLimit); });
}

class IpcTransportTest : public testing::Test {
 protected:
  auto producer(const std::string& stream = "s") {
    return startProducer(*_here, _here->getStream(stream, {}));
  }
  auto consumer(datastreaming::DataCallback callback, const std::string& stream = "s") {
    return startConsumer(*_there, _there->getStream(stream, {}), std::move(callback));
  }
  [[nodiscard]] datastreaming::StreamStatistics sent() const { return _here->statistics().at(0); }
  [[nodiscard]] datastreaming::StreamStatistics received() const { return _there->statistics().at(0); }

  Folder _folder;
  Factory _here = factoryIn(_folder.path(), 1'000'000), _there = factoryIn(_folder.path(), 1'000'001);
  Inbox _inbox;
};

TEST_F(IpcTransportTest, KeepsMessagesForTheFirstConsumerWhateverItsProcess) {
  const auto sender = producer();
  for (int round = 0; round < 3; ++round) {  // and again when the last consumer has gone
    (void)sendText(*sender, "a");
    sendPieces(*sender, "bcd", 1);
    Inbox first, second;
    const auto one = consumer(first.callback()), two = consumer(second.callback());
    (void)sendText(*sender, "e");
    ASSERT_THAT(first.waitTexts(3), ElementsAre("a", "bcd", "e"));
    ASSERT_THAT(second.waitTexts(1), ElementsAre("e"));
  }
  EXPECT_EQ(sent().lost + received().lost, 0U);
}

TEST_F(IpcTransportTest, LargeMessagesAndAttributesCrossWholeAndTheirMemoryIsUsedAgain) {
  const auto note = _inbox.callback();
  const auto taker = consumer([&, note](const auto* data, auto size, const auto& id, auto& attributes) {
    EXPECT_TRUE(size < memory::leastKept || memory::ownerOf(data, size).owner)
        << "somebody else may write to it";
    return note(data, size, id, attributes);
  });
  const auto sender = producer();
  const AttributeMap large{{"text", std::string(100'000, 'y')}, {"number", 7L}};
  memory::Buffer frozen = memory::Buffer::mappable(400'000);
  for (std::size_t i = 0; i < frozen.size(); ++i) frozen.data()[i] = static_cast<std::uint8_t>(i / 1000);
  frozen.freeze();
  const std::string whole(reinterpret_cast<const char*>(frozen.data()), frozen.size());
  for (std::size_t round = 1; round <= 10; ++round) {  // more than may wait in all
    EXPECT_EQ(outcomeOf(sendText(*sender, std::string(150'000, 'x'), large)), "accepted");
    (void)sender->send(frozen.data(), 200'000, pieceAttributes(false));
    EXPECT_EQ(outcomeOf(sender->send(frozen.data() + 200'000, 200'000, pieceAttributes(true))), "accepted");
    (void)sendText(*sender, std::string(150'000, 'y'), pieceAttributes(true));
    const auto all = _inbox.wait(3 * round);
    ASSERT_EQ(all[3 * round - 3].text, std::string(150'000, 'x'));
    ASSERT_EQ(all[3 * round - 3].attributes, large);
    ASSERT_EQ(all[3 * round - 2].text, whole);
    ASSERT_EQ(all[3 * round - 1].text, std::string(150'000, 'y'));
  }
  const AttributeMap medium{{"text", std::string(20'000, 'z')}};
  EXPECT_EQ(outcomeOf(sendText(*sender, "few", medium)), "accepted");
  EXPECT_EQ(_inbox.wait(31)[30].attributes, medium);
}

TEST_F(IpcTransportTest, MemoryThatIsStillToBeReadIsNotUsedAgainWhenItsStreamIsClosed) {
  Door entered, go;
  const auto note = _inbox.callback();
  const auto slow = consumer([&, note](const auto* data, auto size, const auto& id, auto& attributes) {
    entered.open();
    go.pass("the test to go on");
    return note(data, size, id, attributes);
  });
  auto sender = producer();
  (void)sendText(*sender, "first");
  entered.pass("the first message");
  (void)sendText(*sender, std::string(200'000, 'a'));
  sender.reset();
  const auto other = producer("other");
  for (int i = 0; i < 3; ++i) (void)sendText(*other, std::string(200'000, 'b'));
  go.open();
  EXPECT_EQ(_inbox.waitTexts(2)[1], std::string(200'000, 'a'));
}

TEST_F(IpcTransportTest, WhoDoesNotTakeMessagesMissesThemWhileOthersGoOnAndBothEndsCountThem) {
  Door entered, go;
  const auto slow = consumer([&](const auto*, auto, const auto&, auto&) {
    entered.open();
    go.pass("the test to go on");
  });
  const auto quick = startConsumer(*_here, _here->getStream("s", {}), _inbox.callback());
  const auto sender = producer();
  (void)sendText(*sender, "first");
  entered.pass("the slow consumer");
  std::size_t count = 1;
  while (sent().lost == 0 && count < 1000) {
    EXPECT_EQ(outcomeOf(sendText(*sender, std::string(20'000, 'x'))), "accepted");
    _inbox.wait(++count);
  }
  EXPECT_THAT(sent().lastError, HasSubstr("1000000 bytes that wait"));
  const auto missed = sent().lost;
  go.open();
  EXPECT_TRUE(eventually("the slow one to hear of it", [&] { return received().lost == missed; }));
  EXPECT_EQ(received().messagesReceived + missed, count);
}

TEST_F(IpcTransportTest, WhoDoesNotTakeLargeMessagesLeavesMemoryForOthers) {
  _here = factoryIn(_folder.path(), 400'000'000);
  Door go;
  const auto note = _inbox.callback();
  const auto slow = consumer([&, note](const auto* data, auto size, const auto& id, auto& attributes) {
    go.pass("the test to go on");
    return note(data, size, id, attributes);
  });
  const auto sender = producer(), unheard = producer("unheard"), other = producer("other");
  constexpr int many = 600;  // more than there are blocks
  for (int i = 0; i < many; ++i) {
    ASSERT_EQ(outcomeOf(sendText(*sender, std::to_string(i) + std::string(100'000, 'x'))), "accepted");
    ASSERT_EQ(outcomeOf(sendText(*unheard, std::string(100'000, 'x'))), "accepted");
  }
  Inbox others;
  const auto taker = consumer(others.callback(), "other");
  for (int i = 0; i < 3; ++i) (void)sendText(*other, std::string(200'000, 'y'));
  EXPECT_EQ(others.waitTexts(3)[2], std::string(200'000, 'y'));
  go.open();
  const auto all = _inbox.waitTexts(many);
  for (int i = 0; i < many; ++i) ASSERT_EQ(all[i], std::to_string(i) + std::string(100'000, 'x'));
}

/// Listens at that path and is busy: whoever connects is to come again.
class BusySocket {
 public:
  explicit BusySocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* const where = reinterpret_cast<const sockaddr*>(&address);
    EXPECT_EQ(::bind(_socket, where, sizeof address) + ::listen(_socket, 0), 0);
    EXPECT_EQ(::connect(_first, where, sizeof address), 0);
  }
  ~BusySocket() {
    ::close(_first);
    ::close(_socket);
  }
  BusySocket(const BusySocket&) = delete;
  BusySocket& operator=(const BusySocket&) = delete;

 private:
  const int _socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  const int _first = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
};

TEST_F(IpcTransportTest, WhatIsSentWhileAConsumerCannotBeReachedIsKeptForIt) {
  const auto late = consumer(_inbox.callback());
  const std::string name = _folder.files().at(0), hidden = _folder.path() + "/hidden";
  ::rename(name.c_str(), hidden.c_str());
  Inbox here;
  const auto taker = startConsumer(*_here, _here->getStream("s", {}), here.callback());
  const auto sender = producer();
  (void)sendText(*sender, "before");
  here.wait(1);
  const BusySocket busy(_folder.path() + "/busy");
  ::rename((_folder.path() + "/busy").c_str(), name.c_str());
  (void)sendText(*sender, "meanwhile");
  here.wait(2);
  ::rename(hidden.c_str(), name.c_str());
  (void)sendText(*sender, "afterwards");
  EXPECT_THAT(_inbox.waitTexts(2), ElementsAre("meanwhile", "afterwards"));
}

TEST_F(IpcTransportTest, WhoDoesNotEvenTakeNewsIsPartedWithAndReachedAnew) {
  _here = factoryIn(_folder.path(), 20'000);
  Door entered, go;
  const auto note = _inbox.callback();
  const auto slow = consumer([&, note](const auto* data, auto size, const auto& id, auto& attributes) {
    entered.open();
    go.pass("the test to go on");
    return note(data, size, id, attributes);
  });
  const auto quick =
      startConsumer(*_here, _here->getStream("s", {}), [](const auto*, auto, const auto&, auto&) {});
  const auto staying = producer();
  (void)sendText(*staying, "first");
  entered.pass("the first message");
  int producers = 0;
  while (sent().lastError.find("has gone") == std::string::npos && ++producers < 20'000) {
    (void)sendText(*producer(), "comes and goes");
  }
  EXPECT_LT(producers, 20'000);
  go.open();
  EXPECT_TRUE(eventually("it to be reached anew", [&] {
    (void)sendText(*staying, "later");
    return _inbox.has("later");
  }));
}

TEST_F(IpcTransportTest, RefusesWhatNobodyHasRoomForAndCountsWhatNobodyEverReads) {
  auto sender = producer();
  const std::string large(300'000, 'x');
  for (int i = 0; i < 3; ++i) EXPECT_EQ(outcomeOf(sendText(*sender, large)), "accepted");
  EXPECT_THAT(outcomeOf(sendText(*sender, large)),
              HasSubstr("wait for the first consumer, the limit is 1000000"));
  sender.reset();
  EXPECT_EQ(sent().lost, 3U);
  EXPECT_THAT(sent().lastError, HasSubstr("nobody has come"));
}

/// A process that a test ends; by its number, whatever happens.
class Peer {
 public:
  explicit Peer(const std::string& folder, bool forks = false) {
    int ready[2], life[2];
    EXPECT_EQ(::pipe2(ready, O_CLOEXEC) + ::pipe2(life, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ready[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, life[0], STDIN_FILENO);
    std::string program = IPC_PEER, path = folder, fork = "fork";
    char* const arguments[] = {program.data(), path.data(), forks ? fork.data() : nullptr, nullptr};
    EXPECT_EQ(::posix_spawn(&_process, IPC_PEER, &actions, nullptr, arguments, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ready[1]);
    ::close(life[0]);
    _life = life[1];
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
  }
  ~Peer() {
    end(SIGKILL);
    ::close(_life);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  void signal(int number) const {
    ::kill(_process, number);
    if (number == SIGSTOP) ::waitpid(_process, nullptr, WUNTRACED);  // until it has come to a stop
  }
  void end(int number) {
    if (_process == 0) return;
    signal(number);
    ::waitpid(_process, nullptr, 0);
    _process = 0;
  }

 private:
  pid_t _process = 0;
  int _life = -1;  // of its child
};

/// But for those of memory that is kept.
std::size_t openDescriptors() {
  std::size_t count = 0;
  std::error_code gone;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    count += fs::read_symlink(entry.path(), gone).string().starts_with("/memfd:") ? 0 : 1;
  }
  return count;
}

TEST_F(IpcTransportTest, KilledProcessesAreNoticedAndLeaveNothingBehindAndTheirLossIsCounted) {
  const auto sender = producer("there");
  const auto taker = consumer(_inbox.callback(), "back");
  std::size_t descriptors = 0;
  for (int round = 0; round < 12; ++round) {
    Peer peer(_folder.path());
    const std::string question = "question " + std::to_string(round);
    (void)sendText(*sender, question);
    ASSERT_TRUE(eventually("an answer", [&] { return _inbox.has(question); }));
    for (std::size_t i = 0; i < 50; ++i) (void)sendText(*sender, std::string(i * (i % 10) * 500, 'x'));
    peer.end(SIGKILL);
    ASSERT_TRUE(eventually("its names to go", [&] { return _folder.files().size() == 1; }));
    if (round == 3) descriptors = openDescriptors();
  }
  EXPECT_LE(openDescriptors(), descriptors + 4);
  EXPECT_GT(sent().lost, 0U) << "if nothing was lost, this proves little";
  EXPECT_THAT(sent().lastError, HasSubstr("has gone without taking"));
  for (const auto& text : _inbox.waitTexts(12)) {
    EXPECT_TRUE(text.starts_with("question") || text.find_first_not_of('x') == std::string::npos);
  }
}

TEST_F(IpcTransportTest, StoppedProcessGoesOnAfterwards) {
  Peer peer(_folder.path());
  const auto sender = producer("there");
  const auto taker = consumer(_inbox.callback(), "back");
  peer.signal(SIGSTOP);
  std::size_t accepted = 0;
  while (outcomeOf(sendText(*sender, std::string(50'000, 'x'))) == "accepted") ASSERT_LT(++accepted, 1000U);
  EXPECT_EQ(sent().refused, 1U);
  peer.signal(SIGCONT);
  EXPECT_EQ(_inbox.wait(accepted).size(), accepted);
}

TEST_F(IpcTransportTest, WhatAKilledConsumerWasYetToBeSentGoesToTheNextOne) {
  const auto sender = producer("there");
  Peer peer(_folder.path());
  peer.signal(SIGSTOP);
  for (int i = 0; i < 10; ++i) (void)sendText(*sender, std::to_string(i) + std::string(90'000, 'x'));
  peer.end(SIGKILL);
  ASSERT_TRUE(eventually("its name to go", [&] { return _folder.files().empty(); }));  // else there are two
  const auto next = consumer(_inbox.callback(), "there");
  EXPECT_TRUE(eventually("the rest", [&] { return _inbox.size() + sent().lost == 10; }));
  EXPECT_EQ(_inbox.wait(1).back().text[0], '9');
}

TEST_F(IpcTransportTest, WhoComesNextRemovesTheNamesOfTheDeadWhateverTheirStream) {
  Peer live(_folder.path());
  Peer(_folder.path()).end(SIGKILL);
  EXPECT_EQ(_folder.files().size(), 2U);
  const auto next = factoryIn(_folder.path(), 7)->getStream("another", {});
  EXPECT_EQ(_folder.files().size(), 1U);
}

TEST_F(IpcTransportTest, ForkedChildDoesNotSeemToBeItsParent) {
  const auto sender = producer("there");
  const auto taker = consumer(_inbox.callback(), "back");
  Peer peer(_folder.path(), true);
  (void)sendText(*sender, "question");
  _inbox.wait(1);
  peer.end(SIGKILL);
  EXPECT_TRUE(eventually("its end, though its child lives", [&] { return _folder.files().size() == 1; }));
}

TEST_F(IpcTransportTest, FolderThatIsRemovedIsMadeAgainAndAllMeetThereAgain) {
  const auto taker = consumer(_inbox.callback());
  const auto old = producer();
  (void)sendText(*old, "before");
  _inbox.wait(1);
  fs::remove_all(_folder.path());
  (void)sendText(*old, "over the connection that there is");
  ASSERT_TRUE(eventually("the consumer's place",
                         [&] { return fs::exists(_folder.path()) && _folder.files().size() == 1; }));
  _here = factoryIn(_folder.path(), 1'000'002);
  const auto fresh = producer();
  (void)sendText(*fresh, "from one that is new");
  _inbox.wait(3);
  (void)sendText(*old, "once");
  EXPECT_THAT(_inbox.waitTexts(4), testing::Contains("once").Times(1));
}

TEST_F(IpcTransportTest, FolderOfOthersIsRefusedByNameAndStaleNamesAreRemoved) {
  ::chmod(_folder.path().c_str(), 0777);
  const auto open = [&](const std::string& path) { (void)factoryIn(path, 5)->getStream("s", {}); };
  EXPECT_THAT([&] { open(_folder.path()); }, testing::ThrowsMessage<std::runtime_error>(testing::AllOf(
                                                 HasSubstr(_folder.path()), HasSubstr("others"))));
  ::chmod(_folder.path().c_str(), 0700);
  EXPECT_THAT([&] { open(_folder.path() + "/no/such"); },
              testing::ThrowsMessage<std::runtime_error>(HasSubstr("No such file")));
  const auto withoutSockets = factoryIn("/proc/self/task");
  EXPECT_THAT([&] { startConsumer(*withoutSockets, withoutSockets->getStream("s", {}), _inbox.callback()); },
              testing::ThrowsMessage<std::runtime_error>(HasSubstr("/proc/self/task")));
  const auto live = consumer(_inbox.callback());
  const std::string name = _folder.files().at(0);
  ::rename(name.c_str(), (_folder.path() + "/kept").c_str());
  std::ofstream(name) << "no socket";
  const auto sender = producer();  // finds that
  EXPECT_THAT(sent().lastError, HasSubstr("no socket of our user"));
}

/// What somebody writes who knows where a consumer listens.
struct Stranger {
  const char* name;
  std::function<std::vector<std::uint8_t>(int& descriptor)> packet;
};

std::vector<std::uint8_t> bytesOf(const std::shared_ptr<OutgoingRecord>& record) {
  return {record->bytes().begin(), record->bytes().end()};
}

int memoryFile(unsigned seals, off_t size) {
  const int file = ::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  (void)!::ftruncate(file, size);
  ::fcntl(file, F_ADD_SEALS, seals);
  return file;
}

constexpr unsigned fixedSize = F_SEAL_SHRINK | F_SEAL_GROW;

std::vector<std::uint8_t> messageInBlock(std::uint64_t offset) {
  Stamp stamp;
  stamp.producer = stamp.sequence = stamp.payload = 1;
  const std::string text(200'000, 'x');
  auto bytes = bytesOf(OutgoingRecord::message(stamp, reinterpret_cast<const std::uint8_t*>(text.data()),
                                               text.size(), {}, false, 0));
  std::memcpy(bytes.data() + bytes.size() - 16, &offset, sizeof offset);
  return bytes;
}

class IpcStrangerTest : public IpcTransportTest, public testing::WithParamInterface<Stranger> {
 protected:
  void SetUp() override {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int place = ::open(_folder.files().at(0).c_str(), O_PATH | O_CLOEXEC);
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", place);
    _socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::connect(_socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0)
        << std::strerror(errno);
    ::close(place);
  }
  void TearDown() override { ::close(_socket); }

  void write(const std::vector<std::uint8_t>& bytes, int descriptor) const {
    iovec part{const_cast<std::uint8_t*>(bytes.data()), bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (descriptor >= 0) {
      header.msg_control = control;
      header.msg_controllen = sizeof control;
      cmsghdr* const rights = CMSG_FIRSTHDR(&header);
      *rights = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
      std::memcpy(CMSG_DATA(rights), &descriptor, sizeof descriptor);
    }
    ::sendmsg(_socket, &header, MSG_NOSIGNAL);
    if (descriptor >= 0) ::close(descriptor);
  }

  std::shared_ptr<datastreaming::Consumer> _taker = consumer(_inbox.callback());
  int _socket = -1;
};

TEST_P(IpcStrangerTest, IsSentAwayAndReportedAndCostsNobodyElseAnything) {
  const std::size_t before = openDescriptors();
  int descriptor = -1;
  const auto bytes = GetParam().packet(descriptor);
  if (std::strcmp(GetParam().name, "NoHello") != 0 && std::strncmp(GetParam().name, "Hello", 5) != 0) {
    write(bytesOf(OutgoingRecord::hello()), memoryFile(fixedSize, 4096));
  }
  write(bytes, descriptor);
  EXPECT_TRUE(eventually("the end",
                         [&] { return received().lastError.find("refused or ended") != std::string::npos; }));
  (void)sendText(*producer(), "of ours");
  EXPECT_THAT(_inbox.waitTexts(1), ElementsAre("of ours"));
  EXPECT_TRUE(eventually("descriptors to be closed", [&] { return openDescriptors() <= before + 8; }));
}

const Stranger strangers[] = {
    {"NoHello", [](int&) { return messageInBlock(0); }},
    {"HelloWithoutAccounts", [](int&) { return bytesOf(OutgoingRecord::hello()); }},
    {"HelloWithAFile",
     [](int& descriptor) {
       descriptor = ::open("/dev/zero", O_RDWR | O_CLOEXEC);
       return bytesOf(OutgoingRecord::hello());
     }},
    {"HelloWithAccountsThatMayShrink",
     [](int& descriptor) {
       descriptor = memoryFile(0, 4096);
       return bytesOf(OutgoingRecord::hello());
     }},
    {"SecondHello",
     [](int& descriptor) {
       descriptor = memoryFile(fixedSize, 4096);
       return bytesOf(OutgoingRecord::hello());
     }},
    {"Noise", [](int&) { return std::vector<std::uint8_t>(1000, 0xa5); }},
    {"HalfARecord",
     [](int&) {
       auto bytes = messageInBlock(0);
       bytes.resize(bytes.size() / 2);
       return bytes;
     }},
    {"TooLong", [](int&) { return std::vector<std::uint8_t>(longestPacket + 1, 0); }},
    {"BlockThatIsMissing", [](int&) { return messageInBlock(0); }},
    {"BlockThatMayShrink",
     [](int& descriptor) {
       descriptor = memoryFile(0, 1 << 20);
       return messageInBlock(0);
     }},
    {"BlockThatIsTooSmall",
     [](int& descriptor) {
       descriptor = memoryFile(fixedSize, 200'000);
       return messageInBlock(1);
     }},
    {"BlockFarAway",
     [](int& descriptor) {
       descriptor = memoryFile(fixedSize, 1 << 20);
       return messageInBlock(0xffff'ffff);
     }},
};

INSTANTIATE_TEST_SUITE_P(Ipc, IpcStrangerTest, testing::ValuesIn(strangers),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(IpcEndpoint, IsAFolderByItsAbsolutePathOrThatOfTheUser) {
  EXPECT_EQ(folderOf("ipc:///some where/a%20b"), "/some where/a%20b");
  EXPECT_THAT(folderOf("ipc:"), HasSubstr("/kestrel-streams"));
  EXPECT_EQ(folderOf("ipc:"), folderOf("ipc://"));
  for (const char* wrong : {"ipc:///", "ipc://host/path", "ipc:path", "ipc:/path", "ipc:///path?queue=1"}) {
    EXPECT_THROW((void)folderOf(wrong), std::runtime_error) << wrong;
  }
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Ipc, TransportSuite,
                         testing::Values(TransportCase{
                             .name = "Ipc", .make = [](std::uint64_t queueLimit) -> TransportUnderTest {
                               const auto folder = std::make_shared<Folder>();
                               return {folder, factoryIn(folder->path(), queueLimit)};
                             }}));

}  // namespace kestrel::streams
