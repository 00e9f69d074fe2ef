/**
 * The demo account: a seller at "Relay Analytics" (a made-up revenue analytics company) with five
 * past calls, so that a fresh checkout has a call history to show. Dates are set relative to the
 * moment of seeding.
 */

export const DEMO_EMAIL = 'demo@quillmoss.local';
const DEMO_NAME = 'Demo Seller';

const DEMO_CALLS = [
  {
    key: 'discovery',
    direction: 'outbound',
    status: 'completed',
    durationSeconds: 1723,
    confidence: 0.92,
    speakers: {
      S: DEMO_NAME,
      P: 'Priya Natarajan',
      M: 'Marcus Lee',
    },
    dialogue: [
      ['S', "Thanks for making the time, Priya. Marcus, good to meet you. I'd love to start with how your team forecasts today."],
      ['P', 'Sure. We have about sixty reps across three regions, and the forecast is basically a spreadsheet that each regional lead updates on Thursdays.'],
      ['M', 'And I spend most of Friday reconciling it with Salesforce. The numbers never match on the first pass.'],
      ['S', 'How far off does the commit usually land at the end of the quarter?'],
      ['P', 'Last quarter we missed commit by about eighteen percent. The board noticed.'],
      ['S', "That's a big gap. What do you think drives it, deals slipping or stages that don't reflect reality?"],
      ['M', 'Mostly slippage. Deals sit in negotiation for weeks with no activity and nobody flags them.'],
      ['S', 'Relay scores every open deal on activity and buyer engagement, so a deal that goes quiet gets flagged before the forecast call, not after.'],
      ['P', 'Does it work with our Salesforce setup? We have a lot of custom fields.'],
      ['S', 'It reads custom fields through the standard API. Marcus, I can send our field-mapping guide so you can check it against your objects.'],
      ['M', "Please do. I'd also want to know how you handle territories, we re-cut them every January."],
      ['S', 'Territories sync nightly, and closed deals keep the territory they closed in, so your year-over-year comparisons stay clean.'],
      ['P', "Okay. If a pilot can show us the slipping deals a couple of weeks earlier, that's worth a conversation with our CRO."],
      ['S', "Let's plan on that. I'll put together a thirty-day pilot proposal for two regions and book a follow-up for next Tuesday."],
    ],
    summary: {
      content:
        'Discovery call with Northwind Logistics (Priya Natarajan, VP of Sales Operations; Marcus Lee, RevOps). ' +
        'Their forecast is a weekly spreadsheet reconciled by hand against Salesforce, and they missed last ' +
        "quarter's commit by about 18%, mostly through deals stalling unnoticed. They are interested in Relay's " +
        'deal scoring, with questions on custom Salesforce fields and yearly territory changes. Next step: a ' +
        '30-day pilot proposal for two regions.',
      key_points: [
        'About 60 reps in three regions; the forecast is a spreadsheet updated every Thursday',
        "Missed last quarter's commit by about 18%, mainly because stalled deals went unflagged",
        'Open technical questions: custom Salesforce fields and territories re-cut every January',
        'A pilot succeeds if it flags slipping deals about two weeks earlier',
      ],
      action_items: [
        { description: 'Send the Salesforce field-mapping guide to Marcus', assignee: DEMO_NAME, priority: 'high', deadline: 'Tomorrow' },
        { description: 'Draft a 30-day pilot proposal covering two regions', assignee: DEMO_NAME, priority: 'high', deadline: 'Next Tuesday' },
        { description: 'Check the custom objects against the field-mapping guide', assignee: 'Marcus Lee', priority: 'medium' },
      ],
      sentiment: 'positive',
      sentiment_score: 0.55,
      topics: [
        { topic: 'Forecast accuracy', importance: 0.9, mentions: 5 },
        { topic: 'Salesforce integration', importance: 0.7, mentions: 3 },
        { topic: 'Pilot scope', importance: 0.6, mentions: 2 },
        { topic: 'Territory management', importance: 0.4, mentions: 2 },
      ],
      speakers: [
        { name: DEMO_NAME, role: 'Account Executive', mainContributions: ['Qualified the forecasting pain', 'Explained deal scoring', 'Proposed a two-region pilot'] },
        { name: 'Priya Natarajan', role: 'VP of Sales Operations', mainContributions: ['Described the forecast process', 'Quantified the 18% miss', 'Set the pilot success criterion'] },
        { name: 'Marcus Lee', role: 'RevOps Manager', mainContributions: ['Explained the manual reconciliation', 'Raised custom fields and territories'] },
      ],
    },
    messages: [
      { at: 0.2, role: 'user', content: "What's a good question to quantify the cost of the missed forecast?" },
      {
        at: 0.21,
        role: 'assistant',
        content:
          'Ask which decisions were made on the committed number: hiring, inventory or cash. Tying the 18% miss to one ' +
          'concrete decision makes the pain measurable.',
        metadata: { processing_time: 1.4, type: 'suggestion' },
      },
    ],
  },
  {
    key: 'pricing',
    direction: 'outbound',
    status: 'completed',
    durationSeconds: 2466,
    confidence: 0.89,
    speakers: {
      S: DEMO_NAME,
      T: 'Tom Becker',
      A: 'Ana Souza',
    },
    dialogue: [
      ['T', "We've reviewed the proposal. The per-seat price is above what we budgeted, honestly by about twenty percent."],
      ['S', 'I appreciate you being direct. Is the budget built around the 120 seats or around the annual total?'],
      ['T', 'The annual total. We have ninety-five thousand approved for this fiscal year.'],
      ['A', "And from my side, I don't want to cut seats. The whole point is that every rep sees their deal scores."],
      ['S', 'That makes sense. One option is a two-year term: it brings the per-seat price down twelve percent and keeps all 120 seats.'],
      ['T', "Two years is possible, but we'd need a way out if adoption is poor."],
      ['S', 'We can include an adoption checkpoint at month six. If weekly active use is under sixty percent, you can exit at the end of year one.'],
      ['A', "That's reasonable. Can onboarding be included? Last time we paid separately for training and it hurt."],
      ['S', "Up to three onboarding sessions are included on two-year terms. Anything beyond that we'd scope separately."],
      ['T', 'What about payment terms? We usually pay net sixty.'],
      ['S', 'Net sixty works if the first year is invoiced annually upfront. Quarterly billing would be net thirty.'],
      ['T', 'Let me run the two-year numbers with finance. If it lands under ninety-five, I think we can sign this month.'],
      ['S', "I'll send the revised quote today with the checkpoint language, so legal can start in parallel."],
      ['A', "Great. Please copy me, I'll need to brief the regional managers before rollout."],
    ],
    summary: {
      content:
        'Pricing negotiation with Helio Health (Tom Becker, procurement; Ana Souza, sales enablement). Their budget ' +
        'for this fiscal year is $95k, about 20% under the proposal, and they want to keep all 120 seats. Direction ' +
        'agreed: a two-year term at a 12% lower per-seat price, an adoption checkpoint at month six with an exit ' +
        'after year one below 60% weekly active use, three onboarding sessions included, net 60 with annual ' +
        'upfront invoicing.',
      key_points: [
        'Budget is $95k for the fiscal year, about 20% below the proposal',
        'Seat count of 120 is not negotiable for sales enablement',
        'Two-year term lowers the per-seat price by 12%',
        'Month-six adoption checkpoint: exit after year one if weekly active use is under 60%',
        'Net 60 payment terms with annual upfront invoicing',
      ],
      action_items: [
        { description: 'Send the revised two-year quote with the adoption checkpoint language', assignee: DEMO_NAME, priority: 'high', deadline: 'Today' },
        { description: 'Run the two-year numbers with finance', assignee: 'Tom Becker', priority: 'high', deadline: 'End of this week' },
        { description: 'Copy Ana Souza on the quote and the contract drafts', assignee: DEMO_NAME, priority: 'medium' },
        { description: 'Brief the regional managers before rollout', assignee: 'Ana Souza', priority: 'low' },
      ],
      sentiment: 'neutral',
      sentiment_score: 0.2,
      topics: [
        { topic: 'Budget and pricing', importance: 0.95, mentions: 6 },
        { topic: 'Contract term', importance: 0.8, mentions: 4 },
        { topic: 'Onboarding', importance: 0.5, mentions: 2 },
        { topic: 'Payment terms', importance: 0.4, mentions: 2 },
      ],
      speakers: [
        { name: DEMO_NAME, role: 'Account Executive', mainContributions: ['Traded term length for price', 'Offered the adoption checkpoint', 'Set payment terms'] },
        { name: 'Tom Becker', role: 'Procurement Lead', mainContributions: ['Stated the $95k budget', 'Asked for an exit clause and net 60'] },
        { name: 'Ana Souza', role: 'Director of Sales Enablement', mainContributions: ['Ruled out cutting seats', 'Asked for onboarding to be included'] },
      ],
    },
    messages: [
      { at: 0.08, role: 'user', content: "They're anchoring on budget. Should I offer a discount now?" },
      {
        at: 0.09,
        role: 'assistant',
        content:
          'Not yet. Trade instead of discounting: a lower per-seat price for a longer term, with the seat count ' +
          'intact, since Ana already said cutting seats defeats the purpose.',
        metadata: { processing_time: 2.1, type: 'suggestion' },
      },
    ],
  },
  {
    key: 'renewal',
    direction: 'inbound',
    status: 'completed',
    durationSeconds: 1332,
    confidence: 0.94,
    speakers: {
      S: DEMO_NAME,
      G: 'Grace Okafor',
    },
    dialogue: [
      ['G', 'Hi, thanks for picking up. Our renewal is coming up and I wanted to talk it through before procurement gets involved.'],
      ['S', 'Of course. How has the first year gone from your side?'],
      ['G', 'Really well, actually. The team runs the pipeline review every Monday, and our forecast error went from about fifteen percent to six.'],
      ['S', "That's great to hear. Is there anything that hasn't worked as well?"],
      ['G', 'The email digest is noisy. Managers get too many alerts and have started ignoring them.'],
      ['S', 'We shipped alert thresholds last month, so each manager can set a minimum deal size for alerts. I can turn that on for you this week.'],
      ['G', "Perfect. We're also adding a second sales team in Austin, about twenty-five reps."],
      ['S', 'Then it makes sense to add them at renewal, so everyone is on one contract with one renewal date.'],
      ['G', 'What would that do to the price?'],
      ['S', 'Twenty-five more seats moves you into the next volume tier, so the per-seat price drops about eight percent across all seats.'],
      ['G', "Send me the numbers and I'll take them to our CFO. I'd like it signed before the end of next month."],
    ],
    summary: {
      content:
        'Renewal call from Grace Okafor (Brightline Software). The first year went well: weekly pipeline reviews ' +
        'and forecast error down from about 15% to 6%. The one complaint is a noisy e-mail digest. They are adding ' +
        'a 25-rep team in Austin, which would move them into the next volume tier (about 8% lower per-seat price).',
      key_points: [
        'Forecast error dropped from about 15% to 6% in the first year',
        'Managers ignore the e-mail digest because of too many alerts',
        'A second team of about 25 reps in Austin joins at renewal',
        'The next volume tier lowers the per-seat price by about 8%',
      ],
      action_items: [
        { description: 'Turn on alert thresholds for Brightline managers', assignee: DEMO_NAME, priority: 'high', deadline: 'This week' },
        { description: 'Send the renewal quote including 25 additional seats', assignee: DEMO_NAME, priority: 'high', deadline: 'Friday' },
        { description: 'Take the renewal to the CFO for approval', assignee: 'Grace Okafor', priority: 'medium', deadline: 'End of next month' },
      ],
      sentiment: 'positive',
      sentiment_score: 0.75,
      topics: [
        { topic: 'Renewal', importance: 0.9, mentions: 3 },
        { topic: 'Seat expansion', importance: 0.8, mentions: 3 },
        { topic: 'Alert noise', importance: 0.5, mentions: 2 },
        { topic: 'Forecast accuracy', importance: 0.4, mentions: 1 },
      ],
      speakers: [
        { name: DEMO_NAME, role: 'Account Executive', mainContributions: ['Offered alert thresholds', 'Proposed co-terming the new seats'] },
        { name: 'Grace Okafor', role: 'Head of Customer Success', mainContributions: ['Reported the forecast improvement', 'Raised alert noise', 'Announced the Austin team'] },
      ],
    },
    messages: [
      { at: 0.7, role: 'user', content: 'Remind me which discount applies above 100 seats.' },
      {
        at: 0.71,
        role: 'assistant',
        content: 'Above 100 seats the volume tier takes about 8% off the per-seat price, applied to every seat in the contract.',
        metadata: { processing_time: 0.9, type: 'answer' },
      },
    ],
  },
  {
    key: 'cut-short',
    direction: 'outbound',
    status: 'failed',
    durationSeconds: 97,
    confidence: 0.81,
    speakers: {
      S: DEMO_NAME,
      D: 'Daniel Kim',
    },
    dialogue: [
      ['S', 'Hi Daniel, this is Demo Seller from Relay Analytics. Do you have a minute?'],
      ['D', "Honestly, not really. I'm between two meetings."],
      ['S', 'Understood. The short version: we help sales teams forecast more accurately, and your VP of Sales mentioned forecasting is on your list this year.'],
      ['D', "Forecasting is Karen's area, not mine. Did she ask you to call me?"],
      ['S', 'She said you would own the budget decision, so I wanted to introduce myself.'],
      ['D', "We're in a spending freeze until next quarter. I can't commit to anything right now."],
      ['S', "That's fair. Would it help if I sent a one-page summary you can look at when the freeze lifts?"],
      ['D', 'Send it to Karen. I have to go, sorry.'],
    ],
    summary: {
      content:
        'Cold call to Daniel Kim, CFO of Vantage Retail, cut short after about a minute and a half. He was between ' +
        'meetings, named Karen (VP of Sales) as the owner of forecasting and said the company is in a spending ' +
        'freeze until next quarter.',
      key_points: [
        'Spending freeze until next quarter',
        'Karen, VP of Sales, owns forecasting; Daniel owns the budget',
        'No interest in a conversation right now',
      ],
      action_items: [
        { description: 'Send a one-page summary to Karen', assignee: DEMO_NAME, priority: 'medium' },
        { description: 'Follow up with Daniel Kim once the spending freeze lifts', assignee: DEMO_NAME, priority: 'low', deadline: 'Next quarter' },
      ],
      sentiment: 'negative',
      sentiment_score: -0.45,
      topics: [
        { topic: 'Spending freeze', importance: 0.8, mentions: 2 },
        { topic: 'Decision maker', importance: 0.6, mentions: 2 },
      ],
      speakers: [
        { name: DEMO_NAME, role: 'Account Executive', mainContributions: ['Gave the short pitch', 'Offered a one-page summary'] },
        { name: 'Daniel Kim', role: 'CFO', mainContributions: ['Pointed to Karen as the owner', 'Mentioned the spending freeze'] },
      ],
    },
    messages: [
      { at: 0.5, role: 'user', content: "He's about to hang up. What do I say?" },
      {
        at: 0.55,
        role: 'assistant',
        content:
          "Ask for the right person and permission to follow up: \"Who should I talk to about forecasting, and may I " +
          'send you a short summary for when the freeze lifts?"',
        metadata: { processing_time: 1.1, type: 'suggestion' },
      },
    ],
  },
  {
    key: 'demo',
    direction: 'outbound',
    status: 'completed',
    durationSeconds: 2894,
    confidence: 0.9,
    speakers: {
      S: DEMO_NAME,
      R: 'Raj Patel',
      L: 'Lena Fischer',
    },
    dialogue: [
      ['S', "Thanks for joining, Lena. Raj is our sales engineer; he'll drive the demo and I'll keep an eye on time."],
      ['L', 'Great. I mostly want to see what my managers would look at every Monday.'],
      ['R', "Let's start there. This is the pipeline review. Every open deal has a health score built from activity, stakeholder coverage and stage age."],
      ['L', "What makes this deal red? It's in proposal stage and the amount looks fine."],
      ['R', 'No buyer activity in sixteen days, and only one contact engaged. Deals like that close at less than half the rate of the rest.'],
      ['L', "That's exactly the kind of thing my managers miss."],
      ['S', 'And you can click through to the last emails and meetings, so the conversation with the rep is about facts.'],
      ['L', 'How does the forecast view work? We do a commit and a best-case number.'],
      ['R', 'Both are supported. Reps submit their call, managers adjust it, and Relay shows its own projection next to theirs.'],
      ['L', "Can we see how accurate each rep's call has been over time?"],
      ['R', "Yes, that's the forecast accuracy tab: each rep's submitted number against what actually closed, by quarter."],
      ['L', "I like that. What does implementation look like? We're on HubSpot, not Salesforce."],
      ['S', 'HubSpot is fully supported. A typical setup takes two weeks, mostly mapping your deal stages.'],
      ['L', "And security: we'll need a SOC 2 report before anything goes to legal."],
      ['S', "I'll send our SOC 2 Type II report under NDA today, along with the HubSpot setup guide."],
      ['L', "Sounds good. Let's plan a session with my two regional managers next week."],
    ],
    summary: {
      content:
        'Product demo for Lena Fischer, Sales Director at Cobalt Analytics, with Raj Patel presenting. She responded ' +
        'well to deal health scores and the per-rep forecast accuracy view. Cobalt runs HubSpot (two-week setup) ' +
        'and needs a SOC 2 report before legal review. Next step: a session with her two regional managers.',
      key_points: [
        'Deal health scores flag stalled deals her managers currently miss',
        'Commit and best-case forecasts are both supported, with per-rep accuracy history',
        'Cobalt uses HubSpot; a typical setup takes two weeks',
        'A SOC 2 report is required before legal review',
      ],
      action_items: [
        { description: 'Send the SOC 2 Type II report under NDA', assignee: DEMO_NAME, priority: 'high', deadline: 'Today' },
        { description: 'Send the HubSpot setup guide', assignee: DEMO_NAME, priority: 'medium', deadline: 'Today' },
        { description: 'Schedule a session with the two regional managers', assignee: 'Lena Fischer', priority: 'medium', deadline: 'Next week' },
      ],
      sentiment: 'positive',
      sentiment_score: 0.68,
      topics: [
        { topic: 'Deal health scoring', importance: 0.85, mentions: 4 },
        { topic: 'Forecast accuracy', importance: 0.8, mentions: 3 },
        { topic: 'HubSpot integration', importance: 0.6, mentions: 2 },
        { topic: 'Security review', importance: 0.5, mentions: 2 },
      ],
      speakers: [
        { name: DEMO_NAME, role: 'Account Executive', mainContributions: ['Framed the demo', 'Covered implementation and security'] },
        { name: 'Raj Patel', role: 'Sales Engineer', mainContributions: ['Demonstrated the pipeline review', 'Explained forecast accuracy tracking'] },
        { name: 'Lena Fischer', role: 'Sales Director', mainContributions: ['Asked about red deals and forecasting', 'Raised HubSpot and SOC 2', 'Proposed the manager session'] },
      ],
    },
    messages: [
      { at: 0.05, role: 'user', content: "Look up Cobalt Analytics' latest funding round." },
      {
        at: 0.06,
        role: 'assistant',
        content:
          'Cobalt Analytics closed a Series B this spring and announced plans to double its sales team, which fits a ' +
          'pitch about keeping forecasts reliable while the team grows.',
        tool_calls: [
          { id: 'tool_1', type: 'function', function: { name: 'web_search', arguments: '{"query":"Cobalt Analytics funding round"}' } },
        ],
        metadata: { processing_time: 3.2, type: 'tool_result' },
      },
    ],
  },
];

const DAY = (date, days, hours = 0, minutes = 0) =>
  new Date(date.getFullYear(), date.getMonth(), date.getDate() + days, hours, minutes);

/**
 * When each demo call starts, in the local time zone: the discovery call earlier today, the
 * pricing call yesterday afternoon, the renewal and the cut-short call earlier this year, the
 * demo in November of last year. Every call ends by `now`, which wins over the day it should
 * fall on in the first minutes of a day or a year.
 * @param {Date} now
 * @returns {Record<string, Date>} start by call key
 */
export function demoSchedule(now) {
  const today = DAY(now, 0);
  const newYear = new Date(now.getFullYear(), 0, 1);
  const daysThisYear = Math.round((today - newYear) / 86_400_000);
  const wanted = {
    discovery: (duration) => Math.max(today.getTime(), now.getTime() - duration - 75 * 60_000),
    pricing: () => DAY(today, -1, 15, 10).getTime(),
    renewal: () => DAY(newYear, Math.floor(daysThisYear / 2), 10, 30).getTime(),
    'cut-short': () => DAY(newYear, Math.max(0, daysThisYear - 4), 9, 20).getTime(),
    demo: () => DAY(newYear, -48, 16, 0).getTime(),
  };
  return Object.fromEntries(
    DEMO_CALLS.map(({ key, durationSeconds }) => {
      const duration = durationSeconds * 1000;
      return [key, new Date(Math.min(wanted[key](duration), now.getTime() - duration))];
    }),
  );
}

// Spreads a dialogue over the call: one segment per line, each in its own slot, as long as
// the line takes to say at an easy pace.
function timeline(dialogue, speakers, durationSeconds) {
  const slot = durationSeconds / dialogue.length;
  const round = (seconds) => Math.round(seconds * 10) / 10;
  return dialogue.map(([who, text], index) => {
    const start = index * slot + slot * 0.1;
    const spoken = Math.max(2.5, text.split(/\s+/).length / 2.6);
    return {
      start_time: round(start),
      end_time: round(start + Math.min(spoken, slot * 0.85)),
      speaker: speakers[who],
      text,
    };
  });
}

/**
 * Creates the demo user and their calls, once: when the demo user already has calls, nothing is
 * added. All of it is one transaction, so an interrupted seed leaves nothing behind.
 * @param {{db: import('./db.js').Database, auth: import('./auth.js').AuthService,
 *          calls: import('./calls.js').CallStore}} deps
 * @returns {number} how many calls it created
 */
export function seedDemo({ db, auth, calls }) {
  return db.transaction(() => {
    const user = auth.findOrCreateUser({ email: DEMO_EMAIL, name: DEMO_NAME });
    if (calls.countForUser(user.id) > 0) return 0;
    const schedule = demoSchedule(new Date());
    for (const call of DEMO_CALLS) {
      const start = schedule[call.key];
      const end = new Date(start.getTime() + call.durationSeconds * 1000);
      const moment = (fraction) => new Date(start.getTime() + fraction * call.durationSeconds * 1000);
      const id = calls.create({ userId: user.id, direction: call.direction, at: start });
      calls.append(id, {
        segments: timeline(call.dialogue, call.speakers, call.durationSeconds),
        confidence: call.confidence,
        messages: call.messages.map(({ at, ...message }) => ({ ...message, timestamp: moment(at).toISOString() })),
        at: end,
      });
      calls.complete(id, { status: call.status, summary: call.summary, durationSeconds: call.durationSeconds, at: end });
    }
    return DEMO_CALLS.length;
  });
}
