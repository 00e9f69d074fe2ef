#include "session/SummaryTranscriptFeed.h"

#include "call/TranscriptionViewModel.h"
#include "session/SummaryModel.h"

#include <QPointer>

void feedSummaryFromTranscript(SummaryModel& summary, TranscriptionViewModel* transcript)
{
    summary.setTranscriptProvider([transcript = QPointer<TranscriptionViewModel>(transcript)] {
        return transcript ? transcript->transcriptionText() : QString();
    });
}
