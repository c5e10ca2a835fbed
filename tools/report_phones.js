// The map of phones: a lane for each device and error number, and in it a cell for each phone that has it.

const CELL_LEAST = 3.5, CELL_MOST = 44;  // pixels of width
const CELL_FOR_COUNT = 24;               // that a count fits in
const LABEL_LEAST = 15;                  // pixels from one phone's name to the next
const LABEL_LETTERS = 10;
const LABEL_SLANT = 36;                  // pixels by which the last name leans over the edge

class PhoneMap extends Lanes {
  reach = 0;

  // The caller is told of a phone and a failure that were chosen.
  constructor(root, {choose, drawAnew}) {
    super(root, "Phones by error numbers", drawAnew);
    this.choose = choose;
  }

  // Draws the groups, those with most reports first.
  render(groups, chosenPhone) {
    const width = (this.width - LABEL_SLANT - 2) / phones.length;
    this.cell = Math.min(Math.max(width, CELL_LEAST), CELL_MOST);
    this.chosenPhone = chosenPhone;
    this.most = groups.reduce((most, {worstCount}) => Math.max(most, worstCount), 1);
    this.renderLanes(groups.map(group => ({...group, name: nameOf(group.failure)})),
                     this.cell * phones.length + LABEL_SLANT, 80);
  }

  drawAxis(axisHeight, height) {
    const every = Math.ceil(LABEL_LEAST / this.cell), chosen = phones.indexOf(this.chosenPhone);
    const hasRoom = i => i % every === 0 && (chosen < 0 || Math.abs(i - chosen) >= every);
    for (const [i, phone] of phones.entries()) {
      const x = this.#xOf(i);
      const isChosen = i === chosen;
      if (isChosen) {
        draw(this.surface, "rect", {class: "column", x: x - this.cell / 2, y: 0, width: this.cell, height});
      }
      if (isChosen || hasRoom(i)) {
        const name = phone.length > LABEL_LETTERS ? `…${phone.slice(1 - LABEL_LETTERS)}` : phone;
        draw(this.axis, "text", {class: isChosen ? "picked" : "", x: 0, y: 0,
                                 transform: `translate(${x + 3} ${axisHeight - 4}) rotate(-65)`}, plain(name));
      }
    }
  }

  layOut({phones: counts}) {
    return phones.flatMap((phone, i) => (counts.has(phone)
      ? [{x: this.#xOf(i), half: this.cell / 2, count: counts.get(phone), phone}] : []));
  }

  // A path for all cells of a colour: there may be hundreds in a lane.
  drawLane(parent, cells, y) {
    const gap = this.cell > 8 ? 1 : 0;
    for (const [level, members] of Map.groupBy(cells, ({count}) => levelOf(count, this.most))) {
      const group = draw(parent, "g", {class: `cells level-${level}`});
      const box = `v18h${this.cell - gap}v-18z`;
      draw(group, "path", {class: "shape", d: members.map(({x, half}) => `M${x - half} ${y - 9}${box}`).join("")});
      for (const {x, count} of this.cell >= CELL_FOR_COUNT ? members : []) {
        draw(group, "text", {x, y: y + 4}, count < 10000 ? count : `${Math.floor(count / 1000)}k`);
      }
    }
  }

  describe({phone, count}, {name}) {
    return `${plain(phone)}\n${name}\n${counted(count, "report")}`;
  }

  activate({phone}, {failure}) {
    this.choose(phone, failure);
  }

  #xOf(i) {
    return (i + 0.5) * this.cell;
  }
}
