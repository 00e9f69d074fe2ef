//! Quillmoss's narrow C interface to whisper.cpp: one context loaded from a
//! model file, full transcription of 16 kHz mono samples with the call's fixed
//! parameters, the segment texts, and the engine's log output routed to the
//! host. The C declarations are in `include/whisper_bridge.h`; keep both in step.

use std::ffi::{c_char, c_int, c_void, CStr, CString};
use std::fs::File;
use std::io::{self, BufReader, Read};
use std::os::unix::ffi::OsStrExt;
use std::path::Path;
use std::ptr;
use std::sync::{Mutex, Once, OnceLock};

use whisper_rs::whisper_rs_sys as sys;

/// Log levels handed to the host's callback.
pub const WHISPER_BRIDGE_LOG_DEBUG: c_int = 0;
pub const WHISPER_BRIDGE_LOG_INFO: c_int = 1;
pub const WHISPER_BRIDGE_LOG_WARN: c_int = 2;
pub const WHISPER_BRIDGE_LOG_ERROR: c_int = 3;
/// The rest of the line of the message before.
pub const WHISPER_BRIDGE_LOG_CONT: c_int = 4;
/// A recognized segment as it is decoded, with its times.
pub const WHISPER_BRIDGE_LOG_SEGMENT: c_int = 5;

/// whisper_full's result when the samples cannot be handed over at all.
pub const WHISPER_BRIDGE_ERROR_BAD_INPUT: c_int = -100;

pub type LogCallback =
    Option<unsafe extern "C" fn(level: c_int, text: *const c_char, user_data: *mut c_void)>;
pub type AbortCallback = Option<unsafe extern "C" fn(user_data: *mut c_void) -> bool>;

/// One loaded model. Opaque to C.
pub struct WhisperBridgeContext {
    ctx: *mut sys::whisper_context,
    compute_backend: CString,
}

struct LogTarget {
    callback: LogCallback,
    user_data: usize,
}

static LOG_TARGET: Mutex<LogTarget> = Mutex::new(LogTarget {
    callback: None,
    user_data: 0,
});
static LOG_HOOKS: Once = Once::new();

/// Sends one message to the host's callback, if there is one. The lock is not
/// held during the call, so the host may log from any thread meanwhile.
fn emit(level: c_int, text: *const c_char) {
    let (callback, user_data) = match LOG_TARGET.lock() {
        Ok(target) => (target.callback, target.user_data),
        Err(poisoned) => {
            let target = poisoned.into_inner();
            (target.callback, target.user_data)
        }
    };
    if let Some(callback) = callback {
        // SAFETY: the host registered this function for exactly this call.
        unsafe { callback(level, text, user_data as *mut c_void) };
    }
}

unsafe extern "C" fn engine_log(level: sys::ggml_log_level, text: *const c_char, _: *mut c_void) {
    if text.is_null() {
        return;
    }
    let level = match level {
        sys::ggml_log_level_GGML_LOG_LEVEL_DEBUG => WHISPER_BRIDGE_LOG_DEBUG,
        sys::ggml_log_level_GGML_LOG_LEVEL_WARN => WHISPER_BRIDGE_LOG_WARN,
        sys::ggml_log_level_GGML_LOG_LEVEL_ERROR => WHISPER_BRIDGE_LOG_ERROR,
        sys::ggml_log_level_GGML_LOG_LEVEL_CONT => WHISPER_BRIDGE_LOG_CONT,
        _ => WHISPER_BRIDGE_LOG_INFO,
    };
    emit(level, text);
}

/// whisper.cpp and ggml print to stderr until told otherwise; from the first
/// call into the bridge on, their output goes to the host or nowhere.
fn install_log_hooks() {
    LOG_HOOKS.call_once(|| {
        // SAFETY: engine_log has the signature both setters expect and lives forever.
        unsafe {
            sys::whisper_log_set(Some(engine_log), ptr::null_mut());
            sys::ggml_log_set(Some(engine_log), ptr::null_mut());
        }
    });
}

/// Routes whisper.cpp's and ggml's log output to `callback` (null: dropped).
/// The callback may be called from any thread, and with messages split in
/// pieces (WHISPER_BRIDGE_LOG_CONT continues the one before).
///
/// # Safety
/// `callback` must stay callable with `user_data` until it is replaced.
#[no_mangle]
pub unsafe extern "C" fn whisper_bridge_set_log_callback(
    callback: LogCallback,
    user_data: *mut c_void,
) {
    install_log_hooks();
    let mut target = match LOG_TARGET.lock() {
        Ok(target) => target,
        Err(poisoned) => poisoned.into_inner(),
    };
    target.callback = callback;
    target.user_data = user_data as usize;
}

/// What whisper.cpp would compute on with the default context parameters (GPU
/// allowed, first device): the first GPU ggml offers, else the CPU.
fn compute_backend() -> CString {
    let defaults = unsafe { sys::whisper_context_default_params() };
    if defaults.use_gpu {
        let mut gpus = 0;
        // SAFETY: plain queries of ggml's device registry.
        unsafe {
            for index in 0..sys::ggml_backend_dev_count() {
                let device = sys::ggml_backend_dev_get(index);
                let kind = sys::ggml_backend_dev_type(device);
                if kind == sys::ggml_backend_dev_type_GGML_BACKEND_DEVICE_TYPE_GPU
                    || kind == sys::ggml_backend_dev_type_GGML_BACKEND_DEVICE_TYPE_IGPU
                {
                    if gpus == defaults.gpu_device {
                        let name = sys::ggml_backend_dev_name(device);
                        if !name.is_null() {
                            return CStr::from_ptr(name).to_owned();
                        }
                    }
                    gpus += 1;
                }
            }
        }
    }
    c"CPU".to_owned()
}

fn read_u32(reader: &mut impl Read) -> Result<u32, String> {
    let mut bytes = [0u8; 4];
    reader
        .read_exact(&mut bytes)
        .map_err(|_| "the file ends early".to_owned())?;
    Ok(u32::from_le_bytes(bytes))
}

fn read_count(reader: &mut impl Read, what: &str, limit: u32) -> Result<u32, String> {
    let value = read_u32(reader)?;
    // Stored as signed 32-bit numbers: a negative one reads as huge here.
    if value == 0 || value > limit {
        return Err(format!("implausible {what}: {}", value as i32));
    }
    Ok(value)
}

fn skip(reader: &mut impl Read, bytes: u64) -> Result<(), String> {
    match io::copy(&mut reader.take(bytes), &mut io::sink()) {
        Ok(copied) if copied == bytes => Ok(()),
        _ => Err("the file ends early".to_owned()),
    }
}

/// whisper.cpp trusts the sizes in a model file: a damaged or cut-off file
/// makes it throw a C++ exception, which cannot pass through Rust and ends the
/// process. So the parts before the tensors (header, mel filters, vocabulary)
/// are checked here first; the tensors whisper.cpp checks itself.
fn check_model_file(path: &Path) -> Result<(), String> {
    const GGML_MAGIC: u32 = 0x6767_6d6c;
    let file = File::open(path).map_err(|error| error.to_string())?;
    let mut reader = BufReader::new(file);
    if read_u32(&mut reader)? != GGML_MAGIC {
        return Err("not a GGML model file".to_owned());
    }
    // Bounds far above every published model, far below what would exhaust memory.
    let n_vocab = read_count(&mut reader, "vocabulary size", 1 << 20)?;
    read_count(&mut reader, "audio context", 1 << 14)?;
    let n_audio_state = read_count(&mut reader, "audio state", 1 << 13)?;
    read_count(&mut reader, "audio heads", 1 << 8)?;
    read_count(&mut reader, "audio layers", 1 << 8)?;
    read_count(&mut reader, "text context", 1 << 14)?;
    let n_text_state = read_count(&mut reader, "text state", 1 << 13)?;
    read_count(&mut reader, "text heads", 1 << 8)?;
    read_count(&mut reader, "text layers", 1 << 8)?;
    read_count(&mut reader, "mel bands", 1 << 10)?;
    read_u32(&mut reader)?; // weight type: whisper.cpp checks it
    if n_audio_state != n_text_state {
        return Err("audio and text state sizes differ".to_owned());
    }

    let n_mel = read_count(&mut reader, "mel filter bands", 1 << 10)?;
    let n_fft = read_count(&mut reader, "mel filter length", 1 << 14)?;
    skip(&mut reader, u64::from(n_mel) * u64::from(n_fft) * 4)?;

    let tokens = read_count(&mut reader, "vocabulary entries", n_vocab)?;
    for _ in 0..tokens {
        let length = read_u32(&mut reader)?;
        if length > 1 << 16 {
            return Err(format!("implausible token length: {length}"));
        }
        skip(&mut reader, u64::from(length))?;
    }
    Ok(())
}

/// Loads the model at `path` with whisper.cpp's default context parameters.
/// Null when the path is null or the model cannot be loaded (the reason is in
/// the log).
///
/// # Safety
/// `path` must be null or a NUL-terminated string.
#[no_mangle]
pub unsafe extern "C" fn whisper_bridge_init(path: *const c_char) -> *mut WhisperBridgeContext {
    install_log_hooks();
    if path.is_null() {
        return ptr::null_mut();
    }
    let file = Path::new(std::ffi::OsStr::from_bytes(CStr::from_ptr(path).to_bytes()));
    if let Err(reason) = check_model_file(file) {
        if let Ok(line) = CString::new(format!("whisper_bridge: {}: {reason}\n", file.display())) {
            emit(WHISPER_BRIDGE_LOG_ERROR, line.as_ptr());
        }
        return ptr::null_mut();
    }
    let ctx = sys::whisper_init_from_file_with_params(path, sys::whisper_context_default_params());
    if ctx.is_null() {
        return ptr::null_mut();
    }
    Box::into_raw(Box::new(WhisperBridgeContext {
        ctx,
        compute_backend: compute_backend(),
    }))
}

/// Frees a context from whisper_bridge_init; null is ignored.
///
/// # Safety
/// `context` must be null or a live context, not used afterwards.
#[no_mangle]
pub unsafe extern "C" fn whisper_bridge_free(context: *mut WhisperBridgeContext) {
    if context.is_null() {
        return;
    }
    let context = Box::from_raw(context);
    sys::whisper_free(context.ctx);
}

fn timestamp(centiseconds: i64) -> String {
    let milliseconds = centiseconds.max(0) * 10;
    format!(
        "{:02}:{:02}:{:02}.{:03}",
        milliseconds / 3_600_000,
        milliseconds / 60_000 % 60,
        milliseconds / 1000 % 60,
        milliseconds % 1000
    )
}

/// whisper.cpp prints realtime segments with printf, onto the host's standard
/// output (a command's JSON, for one). The same lines go to the log instead.
unsafe extern "C" fn print_new_segments(
    ctx: *mut sys::whisper_context,
    _: *mut sys::whisper_state,
    new_segments: c_int,
    _: *mut c_void,
) {
    let count = sys::whisper_full_n_segments(ctx);
    for segment in (count - new_segments).max(0)..count {
        let text = sys::whisper_full_get_segment_text(ctx, segment);
        if text.is_null() {
            continue;
        }
        let line = format!(
            "[{} --> {}]  {}",
            timestamp(sys::whisper_full_get_segment_t0(ctx, segment)),
            timestamp(sys::whisper_full_get_segment_t1(ctx, segment)),
            CStr::from_ptr(text).to_string_lossy()
        );
        if let Ok(line) = CString::new(line) {
            emit(WHISPER_BRIDGE_LOG_SEGMENT, line.as_ptr());
        }
    }
}

/// Recognizes `count` samples (16 kHz mono) on `n_threads` threads, after
/// resetting the timings. Beam search, English, no context carried over, one
/// segment without timestamps. `abort` (may be null) is polled during the
/// computation; returning true stops it with an error. Returns whisper_full's
/// status: 0 on success.
///
/// # Safety
/// `context` must be a live context used by no other thread meanwhile;
/// `samples` must point at `count` floats.
#[no_mangle]
pub unsafe extern "C" fn whisper_bridge_full(
    context: *mut WhisperBridgeContext,
    samples: *const f32,
    count: usize,
    n_threads: c_int,
    abort: AbortCallback,
    abort_user_data: *mut c_void,
) -> c_int {
    let Some(context) = context.as_mut() else {
        return WHISPER_BRIDGE_ERROR_BAD_INPUT;
    };
    let Ok(n_samples) = c_int::try_from(count) else {
        return WHISPER_BRIDGE_ERROR_BAD_INPUT;
    };
    if samples.is_null() && n_samples > 0 {
        return WHISPER_BRIDGE_ERROR_BAD_INPUT;
    }
    let mut params = sys::whisper_full_default_params(
        sys::whisper_sampling_strategy_WHISPER_SAMPLING_BEAM_SEARCH,
    );
    params.language = c"en".as_ptr();
    params.n_threads = n_threads.max(1);
    params.offset_ms = 0;
    params.translate = false;
    params.no_context = true;
    params.no_timestamps = true;
    params.single_segment = true;
    params.print_special = false;
    params.print_progress = false;
    // Realtime printing stays on in spirit: the segment callback writes the
    // same "[t0 --> t1]  text" lines to the log, never to stdout.
    params.print_realtime = false;
    params.print_timestamps = true;
    params.new_segment_callback = Some(print_new_segments);
    params.abort_callback = abort;
    params.abort_callback_user_data = abort_user_data;

    sys::whisper_reset_timings(context.ctx);
    sys::whisper_full(context.ctx, params, samples, n_samples)
}

/// Segments of the last successful whisper_bridge_full.
///
/// # Safety
/// `context` must be a live context.
#[no_mangle]
pub unsafe extern "C" fn whisper_bridge_n_segments(context: *const WhisperBridgeContext) -> c_int {
    match context.as_ref() {
        Some(context) => sys::whisper_full_n_segments(context.ctx),
        None => 0,
    }
}

/// Text of segment `index` (UTF-8), valid until the next transcription or
/// free; null when out of range.
///
/// # Safety
/// `context` must be a live context.
#[no_mangle]
pub unsafe extern "C" fn whisper_bridge_segment_text(
    context: *const WhisperBridgeContext,
    index: c_int,
) -> *const c_char {
    match context.as_ref() {
        Some(context) if index >= 0 && index < sys::whisper_full_n_segments(context.ctx) => {
            sys::whisper_full_get_segment_text(context.ctx, index)
        }
        _ => ptr::null(),
    }
}

/// The device the context computes on: a GPU's name, or "CPU". Lives as long
/// as the context.
///
/// # Safety
/// `context` must be a live context.
#[no_mangle]
pub unsafe extern "C" fn whisper_bridge_compute_backend(
    context: *const WhisperBridgeContext,
) -> *const c_char {
    match context.as_ref() {
        Some(context) => context.compute_backend.as_ptr(),
        None => ptr::null(),
    }
}

/// whisper.cpp's system information ("WHISPER : COREML = 0 | ... | CPU : SSE3
/// = 1 | AVX = 1 | ..."), read once; lives for the whole process.
#[no_mangle]
pub extern "C" fn whisper_bridge_system_info() -> *const c_char {
    static INFO: OnceLock<CString> = OnceLock::new();
    INFO.get_or_init(|| {
        install_log_hooks();
        // SAFETY: whisper.cpp returns a NUL-terminated string that stays valid
        // until its next call, and this is the only caller.
        unsafe { CStr::from_ptr(sys::whisper_print_system_info()) }.to_owned()
    })
    .as_ptr()
}

/// whisper.cpp's version, such as "1.8.3".
#[no_mangle]
pub extern "C" fn whisper_bridge_version() -> *const c_char {
    static VERSION: OnceLock<CString> = OnceLock::new();
    VERSION
        .get_or_init(|| CString::new(whisper_rs::WHISPER_CPP_VERSION).unwrap_or_default())
        .as_ptr()
}
