"""Messages and their records, with the names of the schema. Written by ./dev generate; do not edit."""

from __future__ import annotations

import dataclasses
from typing import Dict, List, Type

from .objects import Record


@dataclasses.dataclass
class TvServiceTerminal_t(Record):
    type: int = 0
    id: int = 0


@dataclasses.dataclass
class TvServiceReq_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0
    intParam3: int = 0
    uri: str = ""
    strParam1: str = ""
    uuid: str = ""
    strParam2: str = ""
    strParamList: List[str] = dataclasses.field(default_factory=list)
    reqId: str = ""
    strParam3: str = ""
    strParam4: str = ""
    intParam4: int = 0


@dataclasses.dataclass
class TvServiceInfo_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    result: int = 0
    uri: str = ""
    uuid: str = ""
    uuidAncestor: str = ""
    reqId: str = ""


@dataclasses.dataclass
class AudioStreamInfo_t(Record):
    intParam1: int = 0
    strParam1: str = ""
    strParam2: str = ""
    intParam2: int = 0
    intParam3: int = 0
    intParam4: int = 0
    shortParam1: int = 0
    shortParam2: int = 0
    flagParam1: bool = False
    flagParam2: bool = False
    strParam3: str = ""
    shortParam3: int = 0
    shortParam4: int = 0
    strParam4: str = ""


@dataclasses.dataclass
class SubtitleStreamInfo_t(Record):
    intParam1: int = 0
    strParam1: str = ""
    strParam2: str = ""
    intParam2: int = 0
    intParam3: int = 0
    shortParam1: int = 0
    shortParam2: int = 0
    shortParam3: int = 0
    flagParam1: bool = False
    flagParam2: bool = False
    strParam3: str = ""


@dataclasses.dataclass
class VideoStreamInfo_t(Record):
    intParam1: int = 0
    strParam1: str = ""
    intParam2: int = 0
    shortParam1: int = 0
    shortParam2: int = 0
    flagParam1: bool = False
    shortParam3: int = 0
    shortParam4: int = 0


@dataclasses.dataclass
class TeletextStreamInfo_t(Record):
    intParam1: int = 0
    strParam1: str = ""
    shortParam1: int = 0


@dataclasses.dataclass
class TvServiceAudioReq_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0


@dataclasses.dataclass
class TvServiceSubtitleReq_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0


@dataclasses.dataclass
class TvServiceVideoReq_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0


@dataclasses.dataclass
class TvServiceTeletextReq_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0


@dataclasses.dataclass
class TvServiceStreamInfoReq_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceAudioInfo_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0
    intParam3: int = 0
    streams: List[AudioStreamInfo_t] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class TvServiceSubtitleInfo_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0
    intParam3: int = 0
    streams: List[SubtitleStreamInfo_t] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class TvServiceVideoInfo_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0
    intParam3: int = 0
    streams: List[VideoStreamInfo_t] = dataclasses.field(default_factory=list)
    intParam4: int = 0
    intParam5: int = 0


@dataclasses.dataclass
class TvServiceTeletextInfo_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0
    streams: List[TeletextStreamInfo_t] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class TvServiceStreamInfo_t(Record):
    intParam1: int = 0
    strParam1: str = ""


@dataclasses.dataclass
class TvServiceConflictInfo_t(Record):
    uintList1: List[int] = dataclasses.field(default_factory=list)
    uintList2: List[int] = dataclasses.field(default_factory=list)
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceSwapWinReq_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceAskReleaseReq_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceSListChangedInd_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceTryRunRequestParams_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceParentalLockInfo_t(Record):
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0


@dataclasses.dataclass
class TvServiceSwapWinInfo_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceAskReleaseInfo_t(Record):
    intParam1: int = 0
    byteParam1: int = 0


@dataclasses.dataclass
class TvServiceAskReleaseConf_t(Record):
    intParam1: int = 0
    byteParam1: int = 0


@dataclasses.dataclass
class ServiceStatusInfo_t(Record):
    intParam1: int = 0
    byteParam1: int = 0
    intParam2: int = 0
    intParam3: int = 0
    intParam4: int = 0
    intParam5: int = 0
    intParam6: int = 0
    shortParam1: int = 0
    strParam1: str = ""
    byteParam2: int = 0


@dataclasses.dataclass
class TvServiceStatusInfo_t(Record):
    intParam1: int = 0
    services: List[ServiceStatusInfo_t] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class TvServiceNetworkChangeMessage_t(Record):
    byteParam1: int = 0
    strParam1: str = ""


@dataclasses.dataclass
class TvServiceTunerResult_t(Record):
    byteParam1: int = 0
    intParam1: int = 0
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam2: int = 0
    intParam3: int = 0


@dataclasses.dataclass
class TvServiceTunerStatusMessage_t(Record):
    byteParam1: int = 0
    intParam1: int = 0
    terminal: TvServiceTerminal_t = dataclasses.field(default_factory=TvServiceTerminal_t)
    intParam2: int = 0
    intParam3: int = 0
    intParam4: int = 0


@dataclasses.dataclass
class TvServiceUriLinkageInfo_t(Record):
    byteParam1: int = 0
    strParam1: str = ""
    strParam2: str = ""


@dataclasses.dataclass
class TvServiceCiAncillaryDataInfo_t(Record):
    strParamList: List[str] = dataclasses.field(default_factory=list)
    strParam1: str = ""


@dataclasses.dataclass
class TvServiceInstalledInfo_t(Record):
    byteParam1: int = 0


@dataclasses.dataclass
class TvServicePlayInfo_t(Record):
    strParam1: str = ""


@dataclasses.dataclass
class TvServiceCiCasMessageInfo_t(Record):
    intParam1: int = 0
    byteParam1: int = 0


@dataclasses.dataclass
class TvServiceCcInfo_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceTryRunReply_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class TvServiceOpappInfo_t(Record):
    intParam1: int = 0


@dataclasses.dataclass
class MMServiceTerminal_t(Record):
    type: int = 0
    id: int = 0


@dataclasses.dataclass
class MMServiceReq_t(Record):
    terminal: MMServiceTerminal_t = dataclasses.field(default_factory=MMServiceTerminal_t)
    intParam1: int = 0
    intParam2: int = 0
    intParam3: int = 0
    uri: str = ""
    uuid: str = ""
    strParam2: str = ""
    strParamList: List[str] = dataclasses.field(default_factory=list)
    reqId: str = ""
    strParam3: str = ""


@dataclasses.dataclass
class MMServiceInfo_t(Record):
    terminal: MMServiceTerminal_t = dataclasses.field(default_factory=MMServiceTerminal_t)
    result: int = 0
    uri: str = ""
    uuid: str = ""
    uuidAncestor: str = ""
    reqId: str = ""


@dataclasses.dataclass
class TvServiceReq(Record):
    """Request of tvservice."""

    requests: List[TvServiceReq_t] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class TvServiceSwapWinReq(Record):
    """Request of tvservice."""

    request: TvServiceSwapWinReq_t = dataclasses.field(default_factory=TvServiceSwapWinReq_t)


@dataclasses.dataclass
class TvServiceStreamInfoReq(Record):
    """Request of tvservice."""

    request: TvServiceStreamInfoReq_t = dataclasses.field(default_factory=TvServiceStreamInfoReq_t)


@dataclasses.dataclass
class TvServiceAudioReq(Record):
    """Request of tvservice."""

    request: TvServiceAudioReq_t = dataclasses.field(default_factory=TvServiceAudioReq_t)


@dataclasses.dataclass
class TvServiceSubtitleReq(Record):
    """Request of tvservice."""

    request: TvServiceSubtitleReq_t = dataclasses.field(default_factory=TvServiceSubtitleReq_t)


@dataclasses.dataclass
class TvServiceVideoReq(Record):
    """Request of tvservice."""

    request: TvServiceVideoReq_t = dataclasses.field(default_factory=TvServiceVideoReq_t)


@dataclasses.dataclass
class TvServiceTeletextReq(Record):
    """Request of tvservice."""

    request: TvServiceTeletextReq_t = dataclasses.field(default_factory=TvServiceTeletextReq_t)


@dataclasses.dataclass
class TvServiceInfoReq(Record):
    """Request of tvservice."""


@dataclasses.dataclass
class TvServiceAskReleaseReq(Record):
    """Request of tvservice."""

    request: TvServiceAskReleaseReq_t = dataclasses.field(default_factory=TvServiceAskReleaseReq_t)


@dataclasses.dataclass
class TvServiceSendKeyReq(Record):
    """Request of tvservice."""

    key: str = ""


@dataclasses.dataclass
class TvServiceSListChangedInd(Record):
    """Request of tvservice."""

    indication: TvServiceSListChangedInd_t = dataclasses.field(default_factory=TvServiceSListChangedInd_t)


@dataclasses.dataclass
class TvServiceTryRunReq(Record):
    """Request of tvservice."""

    params: TvServiceTryRunRequestParams_t = dataclasses.field(default_factory=TvServiceTryRunRequestParams_t)


@dataclasses.dataclass
class SetParentalLockInfo(Record):
    """Request of tvservice."""

    info: TvServiceParentalLockInfo_t = dataclasses.field(default_factory=TvServiceParentalLockInfo_t)


@dataclasses.dataclass
class MtsAudioChangeReq(Record):
    """Request of tvservice."""

    track: int = 0


@dataclasses.dataclass
class SetCasService(Record):
    """Request of tvservice."""

    type: int = 0


@dataclasses.dataclass
class RequestPackagesReq(Record):
    """Request of tvservice."""

    type: int = 0
    packages: str = ""


@dataclasses.dataclass
class TvServiceSourceChanged(Record):
    """Request of tvservice."""

    source: str = ""


@dataclasses.dataclass
class TvServiceInfo(Record):
    """Notification of tvservice."""

    infos: List[TvServiceInfo_t] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class TvServiceConflictInfo(Record):
    """Notification of tvservice."""

    info: TvServiceConflictInfo_t = dataclasses.field(default_factory=TvServiceConflictInfo_t)


@dataclasses.dataclass
class TvServiceSwapWinInfo(Record):
    """Notification of tvservice."""

    info: TvServiceSwapWinInfo_t = dataclasses.field(default_factory=TvServiceSwapWinInfo_t)


@dataclasses.dataclass
class TvServiceStreamInfo(Record):
    """Notification of tvservice."""

    info: TvServiceStreamInfo_t = dataclasses.field(default_factory=TvServiceStreamInfo_t)


@dataclasses.dataclass
class TvServiceAudioInfo(Record):
    """Notification of tvservice."""

    info: TvServiceAudioInfo_t = dataclasses.field(default_factory=TvServiceAudioInfo_t)


@dataclasses.dataclass
class TvServiceSubtitleInfo(Record):
    """Notification of tvservice."""

    info: TvServiceSubtitleInfo_t = dataclasses.field(default_factory=TvServiceSubtitleInfo_t)


@dataclasses.dataclass
class TvServiceVideoInfo(Record):
    """Notification of tvservice."""

    info: TvServiceVideoInfo_t = dataclasses.field(default_factory=TvServiceVideoInfo_t)


@dataclasses.dataclass
class TvServiceTeletextInfo(Record):
    """Notification of tvservice."""

    info: TvServiceTeletextInfo_t = dataclasses.field(default_factory=TvServiceTeletextInfo_t)


@dataclasses.dataclass
class TvServiceAskReleaseInfo(Record):
    """Notification of tvservice."""

    info: TvServiceAskReleaseInfo_t = dataclasses.field(default_factory=TvServiceAskReleaseInfo_t)


@dataclasses.dataclass
class TvServiceAskReleaseConf(Record):
    """Notification of tvservice."""

    confirmation: TvServiceAskReleaseConf_t = dataclasses.field(default_factory=TvServiceAskReleaseConf_t)


@dataclasses.dataclass
class TvServiceStatusInfo(Record):
    """Notification of tvservice."""

    info: TvServiceStatusInfo_t = dataclasses.field(default_factory=TvServiceStatusInfo_t)


@dataclasses.dataclass
class TvServiceNetworkChangeMsg(Record):
    """Notification of tvservice."""

    message: TvServiceNetworkChangeMessage_t = dataclasses.field(default_factory=TvServiceNetworkChangeMessage_t)


@dataclasses.dataclass
class TvServiceTunerResult(Record):
    """Notification of tvservice."""

    result: TvServiceTunerResult_t = dataclasses.field(default_factory=TvServiceTunerResult_t)


@dataclasses.dataclass
class TvServiceTunerStatusMessage(Record):
    """Notification of tvservice."""

    message: TvServiceTunerStatusMessage_t = dataclasses.field(default_factory=TvServiceTunerStatusMessage_t)


@dataclasses.dataclass
class TvServiceBroadcastApplictionInfo(Record):
    """Notification of tvservice."""

    application: int = 0


@dataclasses.dataclass
class TvServiceUriLinkageInfo(Record):
    """Notification of tvservice."""

    infos: List[TvServiceUriLinkageInfo_t] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class TvServiceCiAncillaryDataInfo(Record):
    """Notification of tvservice."""

    info: TvServiceCiAncillaryDataInfo_t = dataclasses.field(default_factory=TvServiceCiAncillaryDataInfo_t)


@dataclasses.dataclass
class TvServiceInstalledInfo(Record):
    """Notification of tvservice."""

    info: TvServiceInstalledInfo_t = dataclasses.field(default_factory=TvServiceInstalledInfo_t)


@dataclasses.dataclass
class TvServicePlayInfo(Record):
    """Notification of tvservice."""

    info: TvServicePlayInfo_t = dataclasses.field(default_factory=TvServicePlayInfo_t)


@dataclasses.dataclass
class TvServiceFoundNewOadPacket(Record):
    """Notification of tvservice."""

    packet: int = 0


@dataclasses.dataclass
class TvServiceCiSasMessageInfo(Record):
    """Notification of tvservice."""

    info: TvServiceCiCasMessageInfo_t = dataclasses.field(default_factory=TvServiceCiCasMessageInfo_t)


@dataclasses.dataclass
class TvServiceCcInfoNotify(Record):
    """Notification of tvservice."""

    info: TvServiceCcInfo_t = dataclasses.field(default_factory=TvServiceCcInfo_t)


@dataclasses.dataclass
class TvServiceMtsAudioTrackInfoNotify(Record):
    """Notification of tvservice."""

    track: int = 0


@dataclasses.dataclass
class TvserviceOadStatusNotify(Record):
    """Notification of tvservice."""

    status: int = 0
    text: str = ""


@dataclasses.dataclass
class TvserviceOadProgressNotify(Record):
    """Notification of tvservice."""

    progress: int = 0


@dataclasses.dataclass
class MmServiceReq(Record):
    """Request of mmservice."""

    requests: List[MMServiceReq_t] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class MmServiceInfo(Record):
    """Notification of mmservice."""

    infos: List[MMServiceInfo_t] = dataclasses.field(default_factory=list)


TVSERVICE_REQUESTS: Dict[str, Type[Record]] = {
    "TvServiceReq": TvServiceReq,
    "TvServiceSwapWinReq": TvServiceSwapWinReq,
    "TvServiceStreamInfoReq": TvServiceStreamInfoReq,
    "TvServiceAudioReq": TvServiceAudioReq,
    "TvServiceSubtitleReq": TvServiceSubtitleReq,
    "TvServiceVideoReq": TvServiceVideoReq,
    "TvServiceTeletextReq": TvServiceTeletextReq,
    "TvServiceInfoReq": TvServiceInfoReq,
    "TvServiceAskReleaseReq": TvServiceAskReleaseReq,
    "TvServiceSendKeyReq": TvServiceSendKeyReq,
    "TvServiceSListChangedInd": TvServiceSListChangedInd,
    "TvServiceTryRunReq": TvServiceTryRunReq,
    "SetParentalLockInfo": SetParentalLockInfo,
    "MtsAudioChangeReq": MtsAudioChangeReq,
    "SetCasService": SetCasService,
    "RequestPackagesReq": RequestPackagesReq,
    "TvServiceSourceChanged": TvServiceSourceChanged,
}

TVSERVICE_NOTIFICATIONS: Dict[str, Type[Record]] = {
    "TvServiceInfo": TvServiceInfo,
    "TvServiceConflictInfo": TvServiceConflictInfo,
    "TvServiceSwapWinInfo": TvServiceSwapWinInfo,
    "TvServiceStreamInfo": TvServiceStreamInfo,
    "TvServiceAudioInfo": TvServiceAudioInfo,
    "TvServiceSubtitleInfo": TvServiceSubtitleInfo,
    "TvServiceVideoInfo": TvServiceVideoInfo,
    "TvServiceTeletextInfo": TvServiceTeletextInfo,
    "TvServiceAskReleaseInfo": TvServiceAskReleaseInfo,
    "TvServiceAskReleaseConf": TvServiceAskReleaseConf,
    "TvServiceStatusInfo": TvServiceStatusInfo,
    "TvServiceNetworkChangeMsg": TvServiceNetworkChangeMsg,
    "TvServiceTunerResult": TvServiceTunerResult,
    "TvServiceTunerStatusMessage": TvServiceTunerStatusMessage,
    "TvServiceBroadcastApplictionInfo": TvServiceBroadcastApplictionInfo,
    "TvServiceUriLinkageInfo": TvServiceUriLinkageInfo,
    "TvServiceCiAncillaryDataInfo": TvServiceCiAncillaryDataInfo,
    "TvServiceInstalledInfo": TvServiceInstalledInfo,
    "TvServicePlayInfo": TvServicePlayInfo,
    "TvServiceFoundNewOadPacket": TvServiceFoundNewOadPacket,
    "TvServiceCiSasMessageInfo": TvServiceCiSasMessageInfo,
    "TvServiceCcInfoNotify": TvServiceCcInfoNotify,
    "TvServiceMtsAudioTrackInfoNotify": TvServiceMtsAudioTrackInfoNotify,
    "TvserviceOadStatusNotify": TvserviceOadStatusNotify,
    "TvserviceOadProgressNotify": TvserviceOadProgressNotify,
}

MMSERVICE_REQUESTS: Dict[str, Type[Record]] = {
    "MmServiceReq": MmServiceReq,
}

MMSERVICE_NOTIFICATIONS: Dict[str, Type[Record]] = {
    "MmServiceInfo": MmServiceInfo,
}
