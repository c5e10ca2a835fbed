// The timeline: a lane for each device and error number, a mark for each report or for many that stand close.
"use strict";

const SECOND = 1000, MINUTE = 60 * SECOND, HOUR = 60 * MINUTE, DAY = 24 * HOUR;
const SHORTEST_RANGE = 10 * SECOND;  // reports carry whole seconds: there they stand apart

const LANE_HEIGHT = 22, AXIS_HEIGHT = 36, RADIUS = 5;
const BIN = 24;          // pixels within which marks that would cover each other become one
const LANES_MOST = 400;  // drawn: a page of that height is for nobody

// A number of milliseconds as the phone's clock showed it. All reckoning is in UTC, so that no time zone of the one
// who looks, and no change to summer time of his, moves a report.
function stampOf(time) {
  return new Date(time).toISOString().slice(0, 19).replace("T", " ");
}

function draw(parent, name, attributes = {}, text = "") {
  const node = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) {
    node.setAttribute(key, value);
  }
  node.textContent = text;
  parent?.append(node);
  return node;
}

// Where the time axis has a tick: at round times, at most so many.
const STEPS = [[SECOND, 1, 2, 5, 10, 15, 30], [MINUTE, 1, 2, 5, 10, 15, 30], [HOUR, 1, 2, 3, 6, 12], [DAY, 1, 2, 7]]
  .flatMap(([unit, ...counts]) => counts.map(count => count * unit));
const MONTH_STEPS = [1, 2, 3, 6, 12, 24, 60, 120, 600, 1200, 12000];
const MONTHS = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split(" ");

function ticksOf(from, to, most) {
  const ticks = [];
  const add = (time, label, context) =>
    ticks.push({time, label, context: context === ticks.findLast(tick => tick.context)?.context ? "" : context});
  const step = STEPS.find(candidate => (to - from) / candidate <= most);
  if (step) {
    const origin = step === 7 * DAY ? 4 * DAY : 0;  // a Monday
    for (let time = origin + Math.ceil((from - origin) / step) * step; time <= to; time += step) {
      const [date, clock] = stampOf(time).split(" ");
      const [year, month, day] = date.split("-");
      if (step < DAY) {
        add(time, step < MINUTE ? clock : clock.slice(0, 5), date);
      } else {
        add(time, `${Number(day)} ${MONTHS[month - 1]}`, year);
      }
    }
    return ticks;
  }
  const months = MONTH_STEPS.find(candidate => (to - from) / (candidate * 30 * DAY) <= most) ?? MONTH_STEPS.at(-1);
  const start = new Date(from);
  const first = Math.floor((start.getUTCFullYear() * 12 + start.getUTCMonth()) / months) * months;
  for (let month = first; ; month += months) {
    const time = Date.UTC(Math.floor(month / 12), month % 12);
    if (time > to) {
      return ticks;
    }
    const year = String(Math.floor(month / 12));
    if (time >= from) {
      add(time, months < 12 ? MONTHS[month % 12] : year, months < 12 ? year : "");
    }
  }
}

// The reports of one lane as marks. Those that would cover each other become one mark with their count.
function marksOf(reports, xOf) {
  const bins = Map.groupBy(reports, report => Math.floor(xOf(report.at) / BIN));
  return [...bins].flatMap(([bin, members]) => {
    const left = bin * BIN + RADIUS + 1, right = (bin + 1) * BIN - RADIUS - 1;
    const places = members.map(report => Math.min(Math.max(xOf(report.at), left), right));
    if (places.every((x, i) => i === 0 || x - places[i - 1] >= 2 * RADIUS + 2)) {
      return members.map((report, i) => ({x: places[i], reports: [report]}));
    }
    return [{x: (bin + 0.5) * BIN, reports: members}];
  });
}

// Draws a mark around 0, 0. Kind, a missing end and the test switch show in its shape, and do not exclude each other.
// A mark of many shows what all of them have: where there are hundreds, nearly each has some of everything.
function drawMark(parent, reports) {
  const many = reports.length > 1;
  const dump = reports.every(report => report.kind === "dump");
  const cut = reports.every(report => report.cut);
  const classes = `mark ${dump ? "dump" : "report"}${cut ? " cut" : ""}${many ? " many" : ""}`;
  const group = draw(parent, "g", {class: classes, "data-count": reports.length, "data-number": reports[0].number});
  if (many) {
    const opacity = Math.min(0.15 + 0.13 * Math.log10(reports.length), 0.5);
    draw(group, "rect", {class: "shape", x: -BIN / 2 + 1.5, y: -7, width: BIN - 3, height: 14, rx: dump ? 1 : 7,
                         "fill-opacity": opacity});
    const count = reports.length < 1000 ? reports.length : `${Math.floor(reports.length / 1000)}k`;
    draw(group, "text", {y: 3.5}, count);
  } else if (dump) {
    draw(group, "path", {class: "shape", d: "M0-5.5L5.5 0 0 5.5-5.5 0z"});
  } else {
    draw(group, "circle", {class: "shape", r: RADIUS - 0.5});
  }
  if (reports.every(report => report.test_switch === "on")) {
    draw(group, "rect", {class: "switch", x: -6, y: 8, width: 12, height: 2});
  }
  return group;
}

class Timeline {
  // The caller is told of a report or a range that was chosen, and gives the text that tells a mark.
  constructor(root, tip, {choose, setRange, describe}) {
    Object.assign(this, {root, tip, choose, setRange, describe});
    root.addEventListener("pointerdown", event => this.#press(event));
    root.addEventListener("pointermove", event => this.#move(event));
    root.addEventListener("pointerup", event => this.#release(event));
    root.addEventListener("pointercancel", () => this.#forgetPress());
    root.addEventListener("pointerleave", () => { this.tip.hidden = true; });
  }

  // Draws the reports, which have a time in the range and are in its order. Returns how many lanes there are.
  render(reports, range, chosen) {
    Object.assign(this, {range, width: this.root.clientWidth, lanes: [], surface: null});
    this.left = this.width < 600 ? 124 : 200;
    this.#forgetPress();
    if (reports.length === 0) {
      this.root.replaceChildren(make("p", {className: "hint empty"}, "No report with a date to show."));
      return 0;
    }
    let lanes = [...Map.groupBy(reports, report => `${report.error} ${report.device}`).values()];
    const laneCount = lanes.length;
    if (laneCount > LANES_MOST) {
      lanes = lanes.sort((a, b) => b.length - a.length).slice(0, LANES_MOST);
    }
    lanes.sort(([a], [b]) => (a.device === b.device ? a.error - b.error : a.device < b.device ? -1 : 1));

    const groups = Map.groupBy(lanes, ([report]) => report.device);
    const height = (lanes.length + groups.size) * LANE_HEIGHT + 2;
    const ticks = ticksOf(range.from, range.to, Math.max(3, Math.floor((this.width - this.left) / 75)));
    const axis = draw(null, "svg", {class: "axis", width: this.width, height: AXIS_HEIGHT, "aria-hidden": true});
    this.surface = draw(null, "svg", {
      width: this.width, height, role: "img",
      "aria-label": `${reports.length} reports in ${laneCount} lanes; the table below lists the same reports`});
    for (const [i, {time, label, context}] of ticks.entries()) {
      const x = this.#xOf(time);
      const anchor = x > this.width - 40 ? "end" : "middle";
      draw(this.surface, "line", {class: "grid", x1: x, x2: x, y1: 0, y2: height});
      if (anchor === "middle") {  // at the edge it would run into the one before
        draw(axis, "text", {x, y: 15, "text-anchor": anchor}, label);
      }
      draw(axis, "text", {class: "quiet", x: i === 0 ? Math.max(x, this.left + 30) : x, y: 30, "text-anchor": anchor},
           context);
    }
    let y = 0;
    for (const [device, members] of groups) {
      draw(this.surface, "rect", {class: "group", x: 0, y, width: this.width, height: LANE_HEIGHT});
      this.#label(plain(device), members.reduce((sum, lane) => sum + lane.length, 0), y, "device");
      for (const lane of members) {
        y += LANE_HEIGHT;
        this.#label(numberOf(lane[0]), lane.length, y, "lane");
        const marks = marksOf(lane, time => this.#xOf(time));
        for (const mark of marks) {
          mark.y = y + LANE_HEIGHT / 2;
          drawMark(this.surface, mark.reports).setAttribute("transform", `translate(${mark.x.toFixed(1)} ${mark.y})`);
        }
        this.lanes[y / LANE_HEIGHT] = marks;
      }
      y += LANE_HEIGHT;
    }
    this.root.replaceChildren(axis, this.surface);
    if (laneCount > LANES_MOST) {
      this.root.append(make("p", {className: "hint empty"},
        `${laneCount - LANES_MOST} lanes with the fewest reports are not drawn; filters bring them here.`));
    }
    this.show(chosen);
    return laneCount;
  }

  // Shows which mark the chosen report is in.
  show(chosen) {
    this.chosenNodes?.forEach(node => node.remove());
    this.chosenNodes = [];
    const mark = chosen && this.lanes.flat().find(candidate => candidate?.reports.includes(chosen));
    if (!mark) {
      return;
    }
    const half = mark.reports.length > 1 ? BIN / 2 + 1 : RADIUS + 4;
    this.chosenNodes = [
      draw(this.surface, "line", {class: "guide", x1: mark.x, x2: mark.x, y1: 0, y2: mark.y - 10}),
      draw(this.surface, "rect",
           {class: "ring", x: mark.x - half, y: mark.y - 10, width: 2 * half, height: 20, rx: 4})];
    const top = this.root.scrollTop, shown = this.root.clientHeight - AXIS_HEIGHT;
    if (mark.y - LANE_HEIGHT < top || mark.y + LANE_HEIGHT > top + shown) {
      this.root.scrollTop = mark.y - shown / 2;
    }
  }

  #xOf(time) {
    const {from, to} = this.range;
    return this.left + (time - from) / (to - from) * (this.width - this.left - BIN / 2);
  }

  #timeAt(x) {
    const {from, to} = this.range;
    const part = (x - this.left) / (this.width - this.left - BIN / 2);
    return from + Math.min(Math.max(part, 0), 1) * (to - from);
  }

  // The name of a lane or, on a line of its own that it may fill, of a device, with the count of its reports.
  #label(text, count, y, name) {
    const letter = 7.5, start = name === "device" ? 8 : 18, room = Math.floor((this.width - start - 60) / letter);
    const shown = text.length > room ? text.slice(0, room - 1) + "…" : text;
    const end = Math.max(this.left - 12, start + shown.length * letter + 40);
    draw(draw(this.surface, "text", {class: name, x: start, y: y + 15}, shown), "title", {}, text);
    draw(this.surface, "text", {class: "quiet", x: end, y: y + 15, "text-anchor": "end"}, count);
  }

  #pointOf(event) {
    const box = this.surface.getBoundingClientRect();
    return {x: event.clientX - box.left, y: event.clientY - box.top};
  }

  // The mark that is nearest in the lane, so that a finger hits it too.
  #markAt({x, y}) {
    const marks = this.lanes[Math.floor(y / LANE_HEIGHT)] ?? [];
    const distance = mark => Math.abs(mark.x - x);
    const nearest = marks.reduce((best, mark) => (!best || distance(mark) < distance(best) ? mark : best), null);
    return nearest && distance(nearest) <= BIN / 2 ? nearest : null;
  }

  #press(event) {
    if (this.surface && event.button === 0 && this.#pointOf(event).x >= this.left) {
      this.pressed = this.#pointOf(event).x;
    }
  }

  #move(event) {
    if (!this.surface) {
      return;
    }
    const point = this.#pointOf(event);
    if (this.pressed !== null && !this.span && Math.abs(point.x - this.pressed) > 5) {
      this.root.setPointerCapture(event.pointerId);
      this.span = draw(this.surface, "rect", {class: "span", y: 0, height: this.surface.getAttribute("height")});
    }
    if (this.span) {
      this.span.setAttribute("x", Math.max(this.left, Math.min(point.x, this.pressed)));
      this.span.setAttribute("width", Math.abs(Math.max(this.left, point.x) - this.pressed));
      const ends = [this.pressed, point.x].sort((a, b) => a - b).map(x => stampOf(this.#timeAt(x)));
      this.#tell(event, ends.join("\nto "));
      return;
    }
    const mark = this.#markAt(point);
    this.#tell(event, mark ? this.describe(mark.reports) : "");
  }

  #release(event) {
    const {pressed, span} = this;
    this.#forgetPress();
    if (pressed === null) {
      return;
    }
    const point = this.#pointOf(event);
    if (span) {
      const [from, to] = [pressed, point.x].sort((a, b) => a - b).map(x => this.#timeAt(x));
      this.setRange(from, to);
      return;
    }
    const reports = this.#markAt(point)?.reports;
    if (!reports) {
      return;
    }
    const first = reports[0].at, last = reports.at(-1).at;
    if (first === last) {
      this.choose(reports);
    } else {
      const margin = Math.max((last - first) / 20, (SHORTEST_RANGE - (last - first)) / 2, SECOND);
      this.setRange(first - margin, last + margin);
    }
  }

  #forgetPress() {
    this.span?.remove();
    Object.assign(this, {pressed: null, span: null});
    this.tip.hidden = true;
  }

  #tell(event, text) {
    this.tip.hidden = text === "";
    this.tip.textContent = text;
    const box = this.tip.parentElement.getBoundingClientRect();
    const x = Math.min(event.clientX - box.left + 14, box.width - this.tip.offsetWidth);
    this.tip.style.left = `${Math.max(0, x)}px`;
    this.tip.style.top = `${event.clientY - box.top + 16}px`;
  }
}
