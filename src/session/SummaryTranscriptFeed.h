// Where the live summary's periodic push takes its transcript from: the
// call's live transcript. Kept apart from SummaryModel so that the model (and
// the fuzz build with it) does not need the capture side.
#pragma once

class SummaryModel;
class TranscriptionViewModel;

// From now on `summary` pushes the text of `transcript`. Once `transcript` is
// destroyed, the transcript reads as blank and nothing more is pushed.
void feedSummaryFromTranscript(SummaryModel& summary, TranscriptionViewModel* transcript);
