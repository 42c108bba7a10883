// Runs inside the page, as text: it sees nothing of this file but its argument.

/** What is on the page, for a screen that is so many pixels wide. */
export function measurePage(screenWidth) {
  const root = document.documentElement;
  const body = document.body ?? root;
  const elements = [...body.querySelectorAll('*')].slice(0, 20000);
  const styleOf = element => getComputedStyle(element);
  const cuts = element => styleOf(element).overflowX !== 'visible';

  // A page without anything to see may still have a background of several colours.
  function hasContent() {
    const seen = ['IMG', 'SVG', 'CANVAS', 'VIDEO', 'INPUT', 'BUTTON', 'TEXTAREA', 'SELECT', 'IFRAME', 'OBJECT'];
    return body.innerText.trim() !== '' || elements.some(element => {
      const box = element.getBoundingClientRect();
      return seen.includes(element.tagName.toUpperCase()) || (box.width > 0 && box.height > 0);
    });
  }

  // What sticks out of a scrolling box, or of one that hides it, does not widen the page.
  function isCut(element) {
    for (let box = element.parentElement; box && box !== body && box !== root; box = box.parentElement) {
      if (cuts(box))
        return true;
    }
    return false;
  }

  // With both hidden or clipped nobody can scroll there, and things beyond the edge are there on purpose.
  function scrollsSideways() {
    const shown = styleOf(root).overflowX === 'visible' ? styleOf(body).overflowX : styleOf(root).overflowX;
    return shown !== 'hidden' && shown !== 'clip';
  }

  function describe(element) {
    const classes = [...element.classList].slice(0, 2).map(name => `.${name}`).join('');
    return element.tagName.toLowerCase() + (element.id ? `#${element.id}` : '') + classes;
  }

  // Text without a place to break sticks out of its own element.
  function rightEdge(element) {
    const box = element.getBoundingClientRect();
    const width = Math.max(box.width, cuts(element) ? 0 : element.scrollWidth);
    return width > 0 ? Math.round(box.left + width + scrollX) : 0;
  }

  // The innermost ones: of a block that is too wide for its content it is the content that counts.
  function tooWide() {
    const wide = elements.filter(element => rightEdge(element) > screenWidth + 1 && !isCut(element));
    const outer = new Set(wide.map(element => element.parentElement));
    const inner = wide.filter(element => !outer.has(element));
    return inner.sort((one, other) => rightEdge(other) - rightEdge(one)).slice(0, 5)
      .map(element => `<${describe(element)}>: правый край на ${rightEdge(element)}`);
  }

  // Without a viewport a phone lays the page out for a wide screen and shows it small.
  const scaled = screenWidth < 600 && !document.querySelector('meta[name=viewport]');
  const width = Math.max(root.scrollWidth, body.scrollWidth);
  const overflows = width > (scaled ? innerWidth : screenWidth) + 1 && scrollsSideways();
  return { content: hasContent(), width, overflows, scaled, tooWide: overflows ? tooWide() : [] };
}
