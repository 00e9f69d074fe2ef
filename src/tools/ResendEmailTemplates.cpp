// The ready-made sales e-mails of the templates tool: each a heading, a
// subject and a letter with placeholders in [CAPITALS], then a usage hint.
#include "tools/ResendTools.h"

using namespace Qt::StringLiterals;

namespace {

const auto followUp = uR"(**📧 Follow-Up Email Template:**

**Subject:** Following up on our conversation about [TOPIC]

**Text:**
Hi [NAME],

Thank you for taking the time to speak with me [WHEN - e.g., "yesterday", "last week"] about [SPECIFIC TOPIC/CHALLENGE]. I enjoyed learning more about [COMPANY] and your goals for [GOAL/INITIATIVE].

As promised, I've attached the [RESOURCE/PROPOSAL/INFORMATION] we discussed. It outlines how we can help you [KEY OUTCOME].

Would you be open to a brief call [PROPOSED TIME] to walk through it and answer any questions?

Best regards,
[YOUR NAME]
[YOUR TITLE]
[CONTACT INFORMATION]

**Usage:** Replace text in [BRACKETS] with specific details from your conversation.)"_s;

const auto meetingRequest = uR"(**📅 Meeting Request Email Template:**

**Subject:** Meeting request: [PURPOSE] - [COMPANY NAME]

**Text:**
Dear [NAME],

I'm reaching out because [REASON - e.g., a recent announcement, a shared connection, a challenge common in your industry]. I believe we could help [COMPANY NAME] with [SPECIFIC AREA].

Would you be available for a [DURATION] meeting [TIMEFRAME]? In that time, I'd like to show you how we can deliver:
• [BENEFIT 1]
• [BENEFIT 2]
• [BENEFIT 3]

Please let me know which time suits you best, or feel free to suggest another.

Best regards,
[YOUR NAME]
[YOUR TITLE]
[CONTACT INFORMATION]

**Usage:** Customize with specific benefits and timing that align with their business.)"_s;

const auto proposal = uR"(**💼 Proposal Email Template:**

**Subject:** Proposal for [PROJECT/SERVICE] - [COMPANY NAME]

**Text:**
Dear [NAME],

Thank you for the opportunity to submit a proposal for [PROJECT/SERVICE]. Based on our conversations about [CHALLENGE/GOAL], I've outlined a solution tailored to [COMPANY NAME].

**Executive Summary:**
[BRIEF DESCRIPTION OF THE SOLUTION AND THE PROBLEM IT SOLVES]

**Key Benefits:**
• [QUANTIFIED BENEFIT 1]
• [QUANTIFIED BENEFIT 2]
• [QUANTIFIED BENEFIT 3]

**Investment:** [PRICE/RANGE]
**Timeline:** [IMPLEMENTATION TIMEFRAME]

I'd be glad to walk you through the details and adjust anything to fit your priorities. When would be a good time to talk?

Best regards,
[YOUR NAME]
[YOUR TITLE]
[CONTACT INFORMATION]

**Usage:** Include specific metrics and ROI projections where possible.)"_s;

const auto thankYou = uR"(**🙏 Thank You Email Template:**

**Subject:** Thank you for your time today

**Text:**
Hi [NAME],

Thank you for meeting with me today. I especially appreciated your point about [SPECIFIC INSIGHT THEY SHARED]; it gave me a much clearer picture of what matters to [COMPANY].

As discussed, I will [SPECIFIC NEXT STEP] by [SPECIFIC DATE].

If anything else comes up in the meantime, please don't hesitate to reach out.

Best regards,
[YOUR NAME]
[YOUR TITLE]
[CONTACT INFORMATION]

**Usage:** Reference specific conversation points to show you were actively listening.)"_s;

const auto introduction = uR"(**👋 Introduction Email Template:**

**Subject:** Introduction: [YOUR NAME] from [COMPANY] - [VALUE PROPOSITION]

**Text:**
Hi [NAME],

I'm [YOUR NAME] from [COMPANY]. I noticed [SPECIFIC RESEARCH ABOUT THEIR COMPANY OR INDUSTRY], and thought you might be interested in how we help teams like yours [VALUE PROPOSITION].

Companies such as [SIMILAR COMPANY 1] and [SIMILAR COMPANY 2] have used our [PRODUCT/SERVICE] to [RESULT].

Would you be open to a brief 15-minute conversation? I'm available [SPECIFIC TIME OPTIONS].

Best regards,
[YOUR NAME]
[YOUR TITLE]
[CONTACT INFORMATION]

**Usage:** Always include specific research about their company or industry.)"_s;

const auto available = uR"(**Available Email Templates:**

Use template_type parameter with one of these options:

• **follow_up** - Follow-up after meetings or conversations
• **meeting** - Request meetings with prospects
• **proposal** - Send proposals and quotes
• **thank_you** - Thank you emails after meetings
• **introduction** - Cold outreach and introductions

Each template includes:
✓ Professional subject lines
✓ Structured content with placeholders
✓ Best practice guidance
✓ Customization tips

**Example:** Use "follow_up" to get a follow-up email template.)"_s;

} // namespace

QString ResendResults::emailTemplate(const QString& templateType)
{
    const QString type = templateType.toLower();
    if (type == u"follow_up"_s || type == u"followup"_s)
        return followUp;
    if (type == u"meeting_request"_s || type == u"meeting"_s)
        return meetingRequest;
    if (type == u"proposal"_s || type == u"quote"_s)
        return proposal;
    if (type == u"thank_you"_s || type == u"thanks"_s)
        return thankYou;
    if (type == u"introduction"_s || type == u"intro"_s)
        return introduction;
    return available;
}
