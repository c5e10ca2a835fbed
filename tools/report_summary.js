// The summary: a group of reports for each device and error number and, if asked, for each of the like texts too.

const BARS_MOST = 60;  // of a sparkline

// The days from the one time to the other, in steps of one or more; no days if that is no range.
function daysOf({from, to}) {
  if (!(from <= to)) {
    return {start: 0, step: 1, bars: 0};
  }
  const start = startOf(dayOf(from)), count = Math.floor((to - start) / DAY) + 1;
  const step = Math.ceil(count / BARS_MOST);
  return {start, step, bars: Math.ceil(count / step)};
}

function groupsOf(list, days, withTexts = false) {
  const {start, step, bars} = days;
  const groups = new Map();
  for (const report of list) {
    const {failure, phone, at} = report, like = withTexts ? likeOf(report) : "";
    const key = withTexts ? `${failure.key} ${like}` : failure;
    let group = groups.get(key);
    if (!group) {
      group = {key: failure.key, failure, like, count: 0, phones: new Map(), first: Infinity, last: -Infinity,
               days, bars: Array(bars).fill(0)};
      groups.set(key, group);
    }
    ++group.count;
    group.phones.set(phone, (group.phones.get(phone) ?? 0) + 1);
    if (at !== null) {
      group.first = Math.min(group.first, at);
      group.last = Math.max(group.last, at);
      const bar = Math.floor((at - start) / DAY / step);
      group.bars[bar] += bar in group.bars ? 1 : 0;
    }
  }
  for (const group of groups.values()) {
    [group.worst, group.worstCount] = [...group.phones].reduce(
      (a, b) => (b[1] > a[1] || (b[1] === a[1] && b[0] < a[0]) ? b : a));
  }
  return [...groups.values()].sort((a, b) => b.count - a.count);
}

// How many more reports the second half of the days has than the first.
function riseOf({bars}) {
  return bars.reduce((sum, count, i) => sum + Math.sign(2 * i + 1 - bars.length) * count, 0);
}

// The reports of each day as bars, the highest of which is that of the group's worst day.
function makeSparkline({bars, days: {start, step}}) {
  const most = Math.max(...bars), width = 120 / bars.length;
  const height = count => (count > 0 ? 2 + 18 * count / most : 0);
  const label = `reports per ${step === 1 ? "day" : `${step} days`} from ${dayOf(start)}: ${bars.join(" ")}`;
  const picture = draw(null, "svg", {class: "sparkline", viewBox: "0 0 120 20", preserveAspectRatio: "none",
                                     role: "img", "aria-label": label});
  draw(picture, "title", {}, label);
  draw(picture, "path", {d: bars.map((count, i) => `M${i * width} 20v${-height(count)}h${width * 0.8}V20z`).join("")});
  return picture;
}

const momentOf = time => (Number.isFinite(time) ? stampOf(time).slice(0, 16) : "");
const GROUP_COLUMNS = [
  {name: "device", title: "Device", look: "plain", of: group => group.failure.device,
   show: group => plain(group.failure.device)},
  {name: "error", title: "Error", look: "figure", of: group => ordered(group.failure.error),
   show: group => group.failure.error},
  {name: "named", title: "Name", look: "named minor", of: group => group.failure.name,
   show: group => plain(group.failure.name)},
  {name: "like", title: "Text, with # for numbers", look: "texts", of: group => group.like,
   show: group => plain(group.like)},
  {name: "count", title: "Reports", look: "figure", down: true, of: group => group.count,
   show: group => figureOf(group.count)},
  {name: "phones", title: "Phones", look: "figure fleet", down: true, of: group => group.phones.size,
   show: group => make(
     "span", {}, figureOf(group.phones.size), make("span", {className: "minor"}, ` of ${phones.length}`))},
  {name: "worst", title: "Worst phone", look: "fleet minor spare", down: true, of: group => group.worstCount,
   show: group => `${plain(group.worst)} (${group.worstCount})`},
  {name: "first", title: "First", look: "minor", of: group => group.first, show: group => momentOf(group.first)},
  {name: "last", title: "Last", look: "minor spare", down: true, of: group => group.last,
   show: group => momentOf(group.last)},
  {name: "bars", title: "Over the days", look: "plain", down: true, of: riseOf, show: makeSparkline},
];
