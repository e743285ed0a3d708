@0xd3a1f0c5b7e94826;
using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("bench_cp");

struct Request {
  type @0 :Int32; id @1 :Int32;
  intParam1 @2 :Int32; intParam2 @3 :Int32; intParam3 @4 :Int32;
  uri @5 :Text; strParam1 @6 :Text; uuid @7 :Text; strParam2 @8 :Text;
  strParamList @9 :List(Text);
  reqId @10 :Text; strParam3 @11 :Text; strParam4 @12 :Text;
  intParam4 @13 :Int32;
}
struct Info {
  type @0 :Int32; id @1 :Int32;
  result @2 :Int32;
  uri @3 :Text; uuid @4 :Text; uuidAncestor @5 :Text; reqId @6 :Text;
}
struct AudioStream {
  intParam1 @0 :Int32;
  strParam1 @1 :Text; strParam2 @2 :Text;
  intParam2 @3 :Int32; intParam3 @4 :Int32; intParam4 @5 :Int32;
  shortParam1 @6 :UInt16; shortParam2 @7 :UInt16;
  flagParam1 @8 :Bool; flagParam2 @9 :Bool;
  strParam3 @10 :Text;
  shortParam3 @11 :UInt16; shortParam4 @12 :UInt16;
  strParam4 @13 :Text;
}
struct AudioInfo {
  type @0 :Int32; id @1 :Int32;
  intParam1 @2 :Int32; intParam2 @3 :Int32; intParam3 @4 :Int32;
  streams @5 :List(AudioStream);
}
struct Requests { items @0 :List(Request); }
struct Infos { items @0 :List(Info); }
