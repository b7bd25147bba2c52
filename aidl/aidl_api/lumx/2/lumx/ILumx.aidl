/*
 * Control interface of lumxd, the audio daemon that sits beside the DSP.
 * Every operation answers with a CommandResult (status plus text lines) so a
 * shell tool can print the answer as it is. The binder status is always OK.
 */
package lumx;

interface ILumx {
    parcelable CommandResult {
        @Backing(type="byte")
        enum Status {
            OK = 0,
            ERROR = 1,
            INVALID_PROCESSOR = 2,
            INVALID_PARAMETER = 3,
            INVALID_VALUE = 4,
            INVALID_ELEMENT = 5,
            READ_ONLY = 6,
        }
        Status status = Status.OK;
        float value;
        List<String> strList;
    }

    union ParamValue {
        int i;
        float f;
    }

    @Backing(type="int")
    enum ParameterId {
        UNSPECIFIED = -1,
        VERSION = 0,
        PASSTHROUGH_MODE = 1,
        TEST_MODE = 2,
        BLOCK_LENGTH = 3,
        AUDIO_FORMAT = 4,
    }

    @Backing(type="byte")
    enum UseCase {
        UNSPECIFIED = -1,
        HOTWORDAEC = 0,
        MIC_IN = 1,
        SPEAKER_OUT = 2,
        AREL_TELE = 3,
    }

    /** One block of 16-bit little-endian interleaved audio to or from a client. */
    parcelable AudioPacket {
        int processor_id;
        byte[] data;
        /** Sample-rate code: 5 is 48 kHz. */
        byte sampleRate;
        /** Sample format code: 0 is signed integer PCM. */
        byte format;
        /** Bits-per-sample code: 0 is 8, 1 is 16, 2 is 24, 3 is 32 bits. */
        byte bitsPerSample;
        byte numChannels;
        /** Set to 1 by the daemon; not interpreted. */
        byte reserved;
    }

    parcelable ParamIdElementPair {
        ParameterId paramId = ParameterId.UNSPECIFIED;
        int element;
    }

    /**
     * Implemented by a client of an audio relay processor. One-way, so a slow
     * client never stalls the daemon's real-time stream: it misses blocks.
     */
    interface IReceiveAudioCallback {
        oneway void ReceiveAudio(in AudioPacket packet);
    }

    void Ping();
    CommandResult ShowGraph();
    CommandResult ListProcessors();
    CommandResult ListSupportedProcessors();
    CommandResult NewProcessor(int processorId);
    CommandResult NewProcessorWithType(int processorId, int processorType);
    CommandResult DeleteProcessor(int processorId);
    CommandResult ListSupportedUseCases();
    CommandResult Enable(String useCaseName, boolean enable);
    CommandResult IsEnabled(String useCaseName);
    CommandResult ProcessorInfo(int processorId);
    CommandResult ProcessorEnable(int processorId, boolean enable);
    CommandResult ProcessorIsEnabled(int processorId);
    CommandResult TapList(int core);
    CommandResult TapInfo(int core, int tap, int index);
    CommandResult TapEnable(int core, int tap, int index, boolean enable);
    CommandResult TapSetBlockLength(int core, int tap, int index, int blockLength);
    CommandResult ListTapOutBuffers();
    CommandResult ListInjectBuffers();
    CommandResult Connect(int processorId, int tapOutBuffer, int injectBuffer);
    CommandResult ConnectTap(int core, int tap, int index, int tapOutBuffer, int injectBuffer);
    CommandResult StartIo(int bufferId);
    CommandResult StopIo(int bufferId);
    CommandResult Debug(in List<String> args);
    CommandResult EnableUseCase(UseCase useCase, boolean enable);
    CommandResult IsUseCaseEnabled(UseCase useCase);
    CommandResult SetParameter(int processorId, ParameterId paramId, int element, in ParamValue value);
    CommandResult GetParameter(int processorId, ParameterId paramId, int element, out ParamValue value);
    CommandResult SetParameterBulk(int processorId, in List<ParamIdElementPair> params, in List<ParamValue> values);
    List<ParamValue> GetParameterBulk(int processorId, in List<ParamIdElementPair> params, out CommandResult result);
    CommandResult ListParameters();
    CommandResult SendAudio(int processorId, in AudioPacket packet);
    CommandResult RegisterReceiveAudioCallback(int processorId, IReceiveAudioCallback callback);
}
