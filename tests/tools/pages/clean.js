let count = 0;
const show = () => { document.getElementById('count').textContent = `Нажатий: ${count}`; };
document.getElementById('more').onclick = () => { ++count; show(); };
show();
