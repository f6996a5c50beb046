// The errors of owners whose other members live outside this library, each a block of numbers.
//
// They exist here so that every error of the library family can be archived, carried to another process and thrown
// again with its exact type. docs/errors.md lists all numbers.
#pragma once

#include <cstdint>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Dictionaries of named values.
class VNXSTD_EXPORT qcDictionary {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x1000000C> {};
};

/// Literals in texts.
class VNXSTD_EXPORT qcStringLiteral {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x1000000D> {};
};

/// Projection of image regions.
class VNXSTD_EXPORT qc_ProjectionMethod {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT ClippedProjection : public qc_ErrorLeaf<ClippedProjection, Errors, 0x10000900> {};
  class VNXSTD_EXPORT ZeroSubsamplingFactor : public qc_ErrorLeaf<ZeroSubsamplingFactor, Errors, 0x10000901> {};
  class VNXSTD_EXPORT BadProjectionRegion : public qc_ErrorLeaf<BadProjectionRegion, Errors, 0x10000902> {};
};

/// Acquired images.
class VNXSTD_EXPORT qcAcqImage {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT NotSupported : public qc_ErrorLeaf<NotSupported, Errors, 0x100009D0> {};
};

/// Robust fitting.
class VNXSTD_EXPORT qcRobustFitDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10000F41> {};
};

/// Robust fitting by adaptive random sampling.
class VNXSTD_EXPORT qcAdaptiveRANSACDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10000F43> {};
  class VNXSTD_EXPORT FailedToFitModel : public qc_ErrorLeaf<FailedToFitModel, Errors, 0x10000F44> {};
};

/// Identities of threads.
class VNXSTD_EXPORT qcThreadID {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT CouldNotRegister : public qc_ErrorLeaf<CouldNotRegister, Errors, 0x10002101> {};
  class VNXSTD_EXPORT CreateFailed : public qc_ErrorLeaf<CreateFailed, Errors, 0x10002103> {};
};

/// Sampling of affine regions.
class VNXSTD_EXPORT qcAffineSamplingParams {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadNumSamples : public qc_ErrorLeaf<BadNumSamples, Errors, 0x10002320> {};
  class VNXSTD_EXPORT NotImplemented : public qc_ErrorLeaf<NotImplemented, Errors, 0x10002321> {};
};

/// Affine transformation of images.
class VNXSTD_EXPORT qcAffTransDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT UnboundWindow : public qc_ErrorLeaf<UnboundWindow, Errors, 0x10002324> {};
  class VNXSTD_EXPORT Clipped : public qc_ErrorLeaf<Clipped, Errors, 0x10002325> {};
};

/// Image warp over sampled maps.
class VNXSTD_EXPORT qcSampledImageWarpDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10002390> {};
};

/// Frame grabbers and processor boards.
class VNXSTD_EXPORT qcBoard {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10002C00> {};
  class VNXSTD_EXPORT StaticInitDisorder : public qc_ErrorLeaf<StaticInitDisorder, Errors, 0x10002C01> {};
  class VNXSTD_EXPORT NotSupported : public qc_ErrorLeaf<NotSupported, Errors, 0x10002C02> {};
  class VNXSTD_EXPORT HardwareNotResponding : public qc_ErrorLeaf<HardwareNotResponding, Errors, 0x10002C03> {};
  class VNXSTD_EXPORT Timeout : public qc_ErrorLeaf<Timeout, Errors, 0x10002C04> {};
  class VNXSTD_EXPORT HardwareInUse : public qc_ErrorLeaf<HardwareInUse, Errors, 0x10002C08> {};
  class VNXSTD_EXPORT HardwareNotInitialized : public qc_ErrorLeaf<HardwareNotInitialized, Errors, 0x10002C09> {};
  class VNXSTD_EXPORT FpgaLoadFailure : public qc_ErrorLeaf<FpgaLoadFailure, Errors, 0x10002C0B> {};
  class VNXSTD_EXPORT BadEERAMContents : public qc_ErrorLeaf<BadEERAMContents, Errors, 0x10002C0C> {};
  class VNXSTD_EXPORT MultiProcessAccessFailed : public qc_ErrorLeaf<MultiProcessAccessFailed, Errors, 0x10002C0D> {};
};

/// Accelerators.
class VNXSTD_EXPORT qcAccelerator {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadFile : public qc_ErrorLeaf<BadFile, Errors, 0x10002C05> {};
  class VNXSTD_EXPORT BootFailure : public qc_ErrorLeaf<BootFailure, Errors, 0x10002C06> {};
  class VNXSTD_EXPORT ConnectionBroken : public qc_ErrorLeaf<ConnectionBroken, Errors, 0x10002C0A> {};
};

/// Projection of affine image regions.
class VNXSTD_EXPORT qcAffProjImgDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT UnboundWindow : public qc_ErrorLeaf<UnboundWindow, Errors, 0x10003300> {};
  class VNXSTD_EXPORT Clipped : public qc_ErrorLeaf<Clipped, Errors, 0x10003301> {};
  class VNXSTD_EXPORT BadWeightImage : public qc_ErrorLeaf<BadWeightImage, Errors, 0x10003302> {};
  class VNXSTD_EXPORT NotImplemented : public qc_ErrorLeaf<NotImplemented, Errors, 0x10003303> {};
};

/// Remote procedure calls.
class VNXSTD_EXPORT qcRPC {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT ObjectMismatch : public qc_ErrorLeaf<ObjectMismatch, Errors, 0x10003400> {};
  class VNXSTD_EXPORT UnknownCommunicator : public qc_ErrorLeaf<UnknownCommunicator, Errors, 0x10003402> {};
  class VNXSTD_EXPORT UnsupportedFunction : public qc_ErrorLeaf<UnsupportedFunction, Errors, 0x10003403> {};
  class VNXSTD_EXPORT CouldNotStartService : public qc_ErrorLeaf<CouldNotStartService, Errors, 0x10003405> {};
  class VNXSTD_EXPORT NestedRPC : public qc_ErrorLeaf<NestedRPC, Errors, 0x10003406> {};
  /// A failure on the other side, known here by its number alone; the number is archived after the base part.
  class VNXSTD_EXPORT RuntimeError : public qc_ErrorLeaf<RuntimeError, Errors, 0> {
   public:
    RuntimeError() = default;
    explicit RuntimeError(std::int32_t number) : number_(number) {}
    long errorNumber() const override { return number_; }
    void archiveFields(qcArchive& archive);

   private:
    std::int32_t number_ = 0;
  };
};

/// Handlers of remote procedure calls.
class VNXSTD_EXPORT qcRPCHandler {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT DuplicateHandler : public qc_ErrorLeaf<DuplicateHandler, Errors, 0x10003404> {};
};

/// Transfer of images to and from boards.
class VNXSTD_EXPORT qc_FastImageTransfer {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT TransferFailed : public qc_ErrorLeaf<TransferFailed, Errors, 0x10003502> {};
};

/// Fitting of circle shapes.
class VNXSTD_EXPORT qcCircleFitDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003640> {};
};

/// Fitting of line shapes.
class VNXSTD_EXPORT qcLineFitDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003650> {};
};

/// Fitting of ellipse shapes.
class VNXSTD_EXPORT qcEllipseFitDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003660> {};
};

/// Fitting of point sets.
class VNXSTD_EXPORT qcPointFitDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003670> {};
  class VNXSTD_EXPORT NotImplemented : public qc_ErrorLeaf<NotImplemented, Errors, 0x10003671> {};
};

/// General least squares over dense matrices. The numbers and the lower-case names are older than the blocks.
class VNXSTD_EXPORT qcLSGeneralFitter {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT unstableErr : public qc_ErrorLeaf<unstableErr, Errors, 0x21> {};
  class VNXSTD_EXPORT badArgErr : public qc_ErrorLeaf<badArgErr, Errors, 0x22> {};
};

/// The calibrated camera transform.
class VNXSTD_EXPORT qc2XformCalib2Defs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003930> {};
  class VNXSTD_EXPORT MapsToInfinity : public qc_ErrorLeaf<MapsToInfinity, Errors, 0x10003931> {};
  class VNXSTD_EXPORT NumericalError : public qc_ErrorLeaf<NumericalError, Errors, 0x10003932> {};
  class VNXSTD_EXPORT InsufficientPoints : public qc_ErrorLeaf<InsufficientPoints, Errors, 0x10003933> {};
  class VNXSTD_EXPORT NotImplemented : public qc_ErrorLeaf<NotImplemented, Errors, 0x10003934> {};
};

/// Parallel ports and digital lines.
class VNXSTD_EXPORT qcParallelIO {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003A00> {};
  class VNXSTD_EXPORT CannotEnable : public qc_ErrorLeaf<CannotEnable, Errors, 0x10003A01> {};
  class VNXSTD_EXPORT NotEnabled : public qc_ErrorLeaf<NotEnabled, Errors, 0x10003A03> {};
  class VNXSTD_EXPORT NotImplemented : public qc_ErrorLeaf<NotImplemented, Errors, 0x10003A04> {};
  class VNXSTD_EXPORT Unspecified : public qc_ErrorLeaf<Unspecified, Errors, 0x10003A05> {};
};

/// Serial ports.
class VNXSTD_EXPORT qcSerialIO {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10004D00> {};
  class VNXSTD_EXPORT NotSupported : public qc_ErrorLeaf<NotSupported, Errors, 0x10004D01> {};
  class VNXSTD_EXPORT CannotInit : public qc_ErrorLeaf<CannotInit, Errors, 0x10004D06> {};
  class VNXSTD_EXPORT ReadFail : public qc_ErrorLeaf<ReadFail, Errors, 0x10004D07> {};
  class VNXSTD_EXPORT WriteFail : public qc_ErrorLeaf<WriteFail, Errors, 0x10004D08> {};
};

/// Pointing devices.
class VNXSTD_EXPORT qcPointingDevice {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT NoDevice : public qc_ErrorLeaf<NoDevice, Errors, 0x10004D03> {};
  class VNXSTD_EXPORT NotDetected : public qc_ErrorLeaf<NotDetected, Errors, 0x10004D04> {};
  class VNXSTD_EXPORT UnSupported : public qc_ErrorLeaf<UnSupported, Errors, 0x10004D05> {};
};

/// Selection of a file system.
class VNXSTD_EXPORT qcFileSystemSelect {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT UnsupportedFileSystem : public qc_ErrorLeaf<UnsupportedFileSystem, Errors, 0x10004E00> {};
};

/// Two-dimensional maps.
class VNXSTD_EXPORT qc2DMap {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT notValid : public qc_ErrorLeaf<notValid, Errors, 0x10005810> {};
};

/// Linear two-dimensional maps.
class VNXSTD_EXPORT qc2DLinearMap {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT notValidFit : public qc_ErrorLeaf<notValidFit, Errors, 0x10005820> {};
};

/// Roots of polynomials.
class VNXSTD_EXPORT qcPolynomialRootFinder {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10006000> {};
};

/// Connections over TCP/IP.
class VNXSTD_EXPORT qcTcpip {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT AccessFailed : public qc_ErrorLeaf<AccessFailed, Errors, 0x10006701> {};
  class VNXSTD_EXPORT ConnectionBroken : public qc_ErrorLeaf<ConnectionBroken, Errors, 0x10006702> {};
  class VNXSTD_EXPORT Timeout : public qc_ErrorLeaf<Timeout, Errors, 0x10006703> {};
  class VNXSTD_EXPORT NotSupported : public qc_ErrorLeaf<NotSupported, Errors, 0x10006704> {};
};

/// Datagrams over UDP/IP.
class VNXSTD_EXPORT qcUdpip {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT AccessFailed : public qc_ErrorLeaf<AccessFailed, Errors, 0x10006711> {};
  class VNXSTD_EXPORT BufferNotEmpty : public qc_ErrorLeaf<BufferNotEmpty, Errors, 0x10006712> {};
  class VNXSTD_EXPORT ConnectionBroken : public qc_ErrorLeaf<ConnectionBroken, Errors, 0x10006713> {};
  class VNXSTD_EXPORT InvalidParameter : public qc_ErrorLeaf<InvalidParameter, Errors, 0x10006714> {};
  class VNXSTD_EXPORT Timeout : public qc_ErrorLeaf<Timeout, Errors, 0x10006715> {};
  class VNXSTD_EXPORT NotSupported : public qc_ErrorLeaf<NotSupported, Errors, 0x10006716> {};
};

/// Priority queues.
class VNXSTD_EXPORT qc_PriorityQueueDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT EmptyQueue : public qc_ErrorLeaf<EmptyQueue, Errors, 0x10007200> {};
  class VNXSTD_EXPORT BadHandle : public qc_ErrorLeaf<BadHandle, Errors, 0x10007201> {};
};

/// Worker threads.
class VNXSTD_EXPORT qcWorkerThreadManagerDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x1000AC00> {};
};

/// Reports of progress.
class VNXSTD_EXPORT qcProgressDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x1000B300> {};
};

/// Correction of line-scan distortion.
class VNXSTD_EXPORT qcLineScanDistortionCorrectionDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x1000B410> {};
  class VNXSTD_EXPORT BadImage : public qc_ErrorLeaf<BadImage, Errors, 0x1000B411> {};
  class VNXSTD_EXPORT NotTrained : public qc_ErrorLeaf<NotTrained, Errors, 0x1000B412> {};
  class VNXSTD_EXPORT MismatchedRanges : public qc_ErrorLeaf<MismatchedRanges, Errors, 0x1000B413> {};
};

/// Statistics of histograms.
class VNXSTD_EXPORT qcHistoStats {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT Overflow : public qc_ErrorLeaf<Overflow, Errors, 0x1000B500> {};
};

/// Depth images.
class VNXSTD_EXPORT qcDepthImageDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x1000B800> {};
  class VNXSTD_EXPORT NotInitialized : public qc_ErrorLeaf<NotInitialized, Errors, 0x1000B801> {};
};

/// Character codes.
class VNXSTD_EXPORT qcCharCodeDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT NotRepresentable : public qc_ErrorLeaf<NotRepresentable, Errors, 0x1000C900> {};
};

/// Image warp.
class VNXSTD_EXPORT qcImageWarpDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x16030001> {};
  class VNXSTD_EXPORT BadImage : public qc_ErrorLeaf<BadImage, Errors, 0x16030002> {};
  class VNXSTD_EXPORT BadWindow : public qc_ErrorLeaf<BadWindow, Errors, 0x16030003> {};
  class VNXSTD_EXPORT NotTrained : public qc_ErrorLeaf<NotTrained, Errors, 0x16030004> {};
};

/// Image warp in one dimension.
class VNXSTD_EXPORT qcImageWarp1DDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x16030040> {};
  class VNXSTD_EXPORT BadImage : public qc_ErrorLeaf<BadImage, Errors, 0x16030042> {};
  class VNXSTD_EXPORT BadWindow : public qc_ErrorLeaf<BadWindow, Errors, 0x16030043> {};
  class VNXSTD_EXPORT NotTrained : public qc_ErrorLeaf<NotTrained, Errors, 0x16030044> {};
  class VNXSTD_EXPORT InappropriateXform : public qc_ErrorLeaf<InappropriateXform, Errors, 0x16030045> {};
};
